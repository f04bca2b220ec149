// read_stream.js URL STREAM FOLDER
//
// Writes the payload of each message of the stream into a file of its own, named after its place in the stream, and
// prints a line of JSON for each: its subject, its headers, and that file.

const fs = require("fs");
const path = require("path");
const { connect } = require("nats");

async function main(url, stream, folder) {
  const connection = await connect({ servers: url });
  const jetstream = connection.jetstream();
  const { state } = await (await connection.jetstreamManager()).streams.info(stream);
  const consumer = await jetstream.consumers.get(stream);
  const messages = state.messages > 0 ? await consumer.consume() : [];
  for await (const message of messages) {
    const file = path.join(folder, `${message.seq}.pcapng`);
    fs.writeFileSync(file, message.data);
    const headers = {};
    for (const name of message.headers?.keys() ?? []) {
      headers[name] = message.headers.get(name);
    }
    console.log(JSON.stringify({ subject: message.subject, headers, file }));
    if (message.info.pending === 0) {
      break;
    }
  }
  await connection.close();
}

main(...process.argv.slice(2)).catch((error) => {
  console.error(`read_stream.js: ${error.message}`);
  process.exit(1);
});
