// make_credentials.js CONFIG CREDENTIALS
//
// Writes the settings of a broker that lets in who shows a signed token of one account, and the credentials of such a
// user: a token, and the seed of the key that it names.

const fs = require("fs");
const { createAccount, createOperator, createUser } = require("nkeys.js");

const encode = (value) => Buffer.from(value).toString("base64url");

function makeToken(issuer, subject, name, type, rights) {
  const claims = {
    jti: name,
    iat: Math.floor(Date.now() / 1000),
    iss: issuer.getPublicKey(),
    sub: subject.getPublicKey(),
    name,
    nats: { ...rights, type, version: 2 },
  };
  const text = `${encode(JSON.stringify({ typ: "JWT", alg: "ed25519-nkey" }))}.${encode(JSON.stringify(claims))}`;
  return `${text}.${encode(issuer.sign(Buffer.from(text)))}`;
}

const [config, credentials] = process.argv.slice(2);
const operator = createOperator();
const user = createUser();
const unlimited = { subs: -1, data: -1, payload: -1, conn: -1, leaf: -1, imports: -1, exports: -1, wildcards: true };
const accounts = ["SYSTEM", "FLEET"].map((name) => {
  const key = createAccount();
  const storage = name === "FLEET" ? { mem_storage: -1, disk_storage: -1, streams: -1, consumer: -1 } : {};
  return { key, token: makeToken(operator, key, name, "account", { limits: { ...unlimited, ...storage } }) };
});
const [system, fleet] = accounts;
fs.writeFileSync(
  config,
  `operator: ${makeToken(operator, operator, "OPERATOR", "operator", {})}
system_account: ${system.key.getPublicKey()}
resolver: MEMORY
resolver_preload: {
${accounts.map(({ key, token }) => `  ${key.getPublicKey()}: ${token}`).join("\n")}
}
`,
);
const token = makeToken(fleet.key, user, "bench", "user", { subs: -1, data: -1, payload: -1 });
const seed = Buffer.from(user.getSeed()).toString();
fs.writeFileSync(
  credentials,
  `-----BEGIN NATS USER JWT-----
${token}
------END NATS USER JWT------

-----BEGIN USER NKEY SEED-----
${seed}
------END USER NKEY SEED------
`,
  { mode: 0o600 },
);
