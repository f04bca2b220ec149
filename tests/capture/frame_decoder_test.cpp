#include "capture/frame_decoder.h"

#include "capture/packet_text.h"
#include "tests/support/sample_frames.h"

namespace {

using wire::Bytes;

/// A big-endian field on the wire and what was decoded from it.
struct Field {
    const char* name;
    std::size_t offset, width;
    std::uint64_t decoded;
};

void expectFields(const char* framing, const Bytes& bytes, std::initializer_list<Field> fields) {
    for (const Field& field : fields) {
        std::uint64_t onWire = 0;
        for (std::size_t i = 0; i < field.width; ++i) {
            onWire = onWire << 8 | bytes[field.offset + i];
        }
        EXPECT_TRUE(field.decoded == onWire) << framing << ", " << field.name << std::hex << ": 0x"
                                             << field.decoded << " and not 0x" << onWire;
    }
}

struct Parser {
    Bytes frame;
    CmpHeader header{};
    std::int32_t offset = 0;
    const std::uint8_t* payload = nullptr;

    std::int32_t next() {
        return parseFrame(frame.data(), static_cast<std::int32_t>(frame.size()), &offset, header,
                          payload);
    }
    std::ptrdiff_t payloadAt() const { return payload - frame.data(); }
};

/// A frame in which every byte differs from its neighbours, but for the bytes given.
Parser countingFrame(std::initializer_list<std::pair<std::size_t, std::uint8_t>> given) {
    Parser parser{wire::counting(120)};
    parser.frame[12] = 0x99;
    parser.frame[13] = 0xFE;
    for (const auto& [at, value] : given) {
        parser.frame[at] = value;
    }
    return parser;
}

TEST(FrameDecoderTest, EachHeaderFieldStandsAtItsPlace) {
    Parser tecmp = countingFrame({{14, 0}, {38, 0}, {39, 20}});
    ASSERT_EQ(tecmp.next(), DecodeResult::ok);
    const CmpHeader& t = tecmp.header;
    expectFields("TECMP", tecmp.frame,
                 {{"CM ID", 14, 2, t.cmId},
                  {"counter", 16, 2, t.counter},
                  {"version", 18, 1, t.version},
                  {"message type", 19, 1, t.messageType},
                  {"data type", 20, 2, t.dataType},
                  {"reserved", 22, 2, t.reserved},
                  {"flags", 24, 2, t.deviceFlags},
                  {"channel ID", 26, 4, t.channelId},
                  {"timestamp", 30, 8, t.timestamp},
                  {"data length", 38, 2, t.dataLength},
                  {"data flags", 40, 2, t.dataFlags}});
    EXPECT_FALSE(t.isAsam);
    EXPECT_EQ(tecmp.payloadAt(), 42);

    Parser asam = countingFrame({{18, 1}, {36, 0}, {37, 20}});
    ASSERT_EQ(asam.next(), DecodeResult::ok);
    const CmpHeader& a = asam.header;
    expectFields("ASAM CMP", asam.frame,
                 {{"device ID", 16, 2, a.cmId},
                  {"counter", 20, 2, a.counter},
                  {"timestamp", 22, 8, a.timestamp},
                  {"interface ID", 30, 4, a.channelId},
                  {"length", 36, 2, a.dataLength}});
    EXPECT_TRUE(a.isAsam);
    EXPECT_EQ(asam.payloadAt(), 38);
}

TEST(FrameDecoderTest, FrameThatHoldsNoMessageIsRefused) {
    const std::tuple<std::uint16_t, std::size_t, std::size_t, std::int32_t> cases[] = {
        {0x99FE, 8, 41, DecodeResult::noData},  {0x99FE, 0, 42, DecodeResult::noData},
        {0x99FE, 1, 42, DecodeResult::invalid}, {0x99FE, 8, 49, DecodeResult::invalid},
        {0x0800, 8, 60, DecodeResult::invalid}, {0x8100, 0, 45, DecodeResult::noData}};
    for (const auto& [etherType, dataLength, size, result] : cases) {
        Parser parser{wire::tecmp(0x41, 3, {{0, 0, Bytes(dataLength)}}, etherType)};
        parser.frame.resize(size);
        EXPECT_EQ(parser.next(), result) << etherType << ", " << size << " bytes";
    }
}

TEST(FrameDecoderTest, TagsAreSkippedHoweverManyThereAre) {
    const Bytes plain = wire::tecmp(0x41, 3, {{0x10, 7, {1, 2, 3}}}, 0x2090);
    for (const auto outer : std::initializer_list<std::uint16_t>{0x8100, 0x88A8, 0x9100}) {
        Parser parser{wire::ethernet(outer)};
        wire::put(parser.frame, 0x000581000006, 6);
        parser.frame.insert(parser.frame.end(), plain.begin() + 12, plain.end());
        EXPECT_EQ(parser.next(), DecodeResult::ok);
        EXPECT_EQ(parser.payloadAt(), 8 + 42);
        EXPECT_EQ(parser.offset, 45) << "counts from behind the tags";
        EXPECT_EQ(parser.next(), DecodeResult::noData);
    }
}

TEST(FrameDecoderTest, OnlyInTecmpHasASecondMessageAHeaderOfItsOwn) {
    Parser tecmp{wire::tecmpData(0x41, {{0x10, 7, {1, 2, 3}}, {0x20, 8, {4}}})};
    wire::put(tecmp.frame, Bytes(30, 0));  // padding
    EXPECT_EQ(tecmp.next(), DecodeResult::ok);
    EXPECT_EQ(tecmp.header.channelId, 0x10U);
    EXPECT_EQ(tecmp.next(), DecodeResult::ok);
    EXPECT_EQ(tecmp.header.channelId, 0x20U);
    EXPECT_EQ(tecmp.header.dataLength, 1U);
    EXPECT_EQ(tecmp.payloadAt(), 42 + 3 + 16);
    EXPECT_EQ(tecmp.next(), DecodeResult::noData);

    Parser asam{wire::asam(0x41, 1, 1, {0x10, 7, Bytes(20, 1)})};
    wire::put(asam.frame, Bytes(40, 9));
    EXPECT_EQ(asam.next(), DecodeResult::ok);
    EXPECT_EQ(asam.next(), DecodeResult::ok);
    EXPECT_EQ(asam.header.channelId, 0x10U);
    EXPECT_EQ(asam.header.dataLength, 20);
    EXPECT_EQ(asam.header.dataType, 2) << "turned over twice";
    EXPECT_EQ(asam.payloadAt(), 38 + 20 + 16);
    EXPECT_EQ(asam.next(), DecodeResult::noData);
}

TEST(FrameDecoderTest, ShortWayToTheNextMessageEndsWhereTheLongOneDoes) {
    for (const wire::SampleFrame& sample : wire::sampleFrames()) {
        for (std::size_t size = 0; size <= sample.bytes.size(); ++size) {
            Parser longWay{sample.bytes};
            longWay.frame.resize(size);
            Parser shortWay = longWay;
            std::int32_t result = longWay.next();
            if (size < 14 || sample.bytes[12] != 0x99 || shortWay.next() != DecodeResult::ok) {
                continue;
            }
            while (result == DecodeResult::ok) {
                result = longWay.next();
                EXPECT_EQ(parseNextMessage(shortWay.frame.data(), static_cast<std::int32_t>(size),
                                           shortWay.offset, shortWay.header, shortWay.payload),
                          result);
                EXPECT_EQ(shortWay.offset, longWay.offset) << sample.name << " cut at " << size;
                EXPECT_EQ(shortWay.payloadAt(), longWay.payloadAt());
                EXPECT_EQ(shortWay.header, longWay.header);
            }
        }
    }
}

TEST(FrameDecoderTest, EachFieldOfAModuleStatusStandsAtItsPlace) {
    const Bytes payload = wire::counting(85);
    CmpHeader header;
    header.dataLength = 85;
    CmStatus s;
    ASSERT_EQ(decodeCmStatus(header, payload.data(), s), DecodeResult::ok);
    expectFields("module status", payload,
                 {{"vendor ID", 0, 1, s.vendorId},
                  {"CM version", 1, 1, s.cmVersion},
                  {"CM type", 2, 1, s.cmType},
                  {"reserved", 3, 1, s.reserved},
                  {"vendor data length", 4, 2, s.vendorDataLength},
                  {"CM ID", 6, 2, s.cmId},
                  {"serial number", 8, 4, s.serialNumber},
                  {"data 12", 12, 1, s.vendorData12[0]},
                  {"data 20", 20, 4, s.vendorData20},
                  {"data 24", 24, 8, s.vendorData24},
                  {"data 34", 34, 1, s.vendorData32[2]}});
    EXPECT_EQ(std::memcmp(s.serialText, &payload[35], 49) | s.serialText[49], 0);
    header.dataLength = 84;
    EXPECT_EQ(decodeCmStatus(header, payload.data(), s), DecodeResult::invalid);
}

TEST(FrameDecoderTest, RecordsOfABusStatusFollowAtTheirStride) {
    for (const auto& [vendorDataLength, stride] :
         {std::pair(0, 12U), {2, 14U}, {3, 15U}, {4, 16U}, {9, 16U}}) {
        Bytes payload = wire::counting(12 + 3 * stride - 1);  // the third isn't complete
        payload[4] = 0;
        payload[5] = static_cast<std::uint8_t>(vendorDataLength);
        CmpHeader header;
        header.dataLength = static_cast<std::uint16_t>(payload.size());
        std::int32_t offset = 0;
        BusStatus s;
        SCOPED_TRACE(stride);
        for (std::size_t at = 12; at < 12 + 2 * stride; at += stride) {
            ASSERT_EQ(decodeBusStatus(header, payload.data(), &offset, s), DecodeResult::ok);
            Bytes carried = payload;
            carried.resize(at + stride);
            carried.resize(at + 16);  // with zeros for what the message doesn't carry
            expectFields("bus status", carried,
                         {{"CM ID", 6, 2, s.cmId},
                          {"serial number", 8, 4, s.serialNumber},
                          {"interface ID", at, 4, s.interfaceId},
                          {"messages", at + 4, 4, s.messageCount},
                          {"errors", at + 8, 4, s.errorCount},
                          {"data 25", at + 13, 1, s.vendorData24[1]},
                          {"data 26", at + 14, 2, s.vendorData26}});
        }
        EXPECT_EQ(decodeBusStatus(header, payload.data(), &offset, s), DecodeResult::noData);
        header.dataLength = 27;
        EXPECT_EQ(decodeBusStatus(header, payload.data(), nullptr, s), DecodeResult::invalid);
    }
}

TEST(FrameDecoderTest, AsamStatusWhoseInnerLengthsRunOutIsDropped) {
    /// The serial text, or the result code as a number.
    const auto decode = [](Bytes payload, std::size_t size) {
        payload.resize(size);
        payload.shrink_to_fit();
        CmStatus status;
        const auto length = static_cast<std::uint32_t>(size);
        const std::int32_t result = decodeAsamCmStatus(payload.data(), length, status);
        return result == DecodeResult::ok ? std::string(status.serialText) : std::to_string(result);
    };
    const Bytes good = wire::asamStatus("module", "SN 4711");
    EXPECT_EQ(decode(good, good.size()), "SN 4711");
    for (std::size_t size = 0; size < good.size(); ++size) {
        EXPECT_EQ(decode(good, size), std::to_string(DecodeResult::invalid)) << size;
    }
    EXPECT_EQ(decode(wire::asamStatus("", std::string(300, 'x')), 331), std::string(49, 'x'));
    Bytes unterminated = wire::asamStatus("", "abc");
    unterminated[29] = 3;
    EXPECT_EQ(decode(unterminated, 33), "abc");
}

TEST(PacketTextTest, EachRecordIsDumpedWithItsLabels) {
    std::string text;
    setPacketTextSink([&](const std::string& piece) { text += piece; });
    dumpHeader({1, 2, 6, 5, 3, 0, 0, 7, 0, 4});
    dumpCmStatus({0, 3, 2, 0, 0, 1, 4});
    dumpBusStatus({0, 3, 2, 0, 0, 1, 4, 5, 7, 6});
    dumpTime({1, 5});
    dumpSeconds(1.5);
    const std::uint8_t bytes[] = {0x0A, 0xFF};
    dumpBytes(bytes, 2);
    setPacketTextSink([](const std::string&) {});
    EXPECT_EQ(text,
              "HEADER\nCM ID:        1\nCounter:      2\nData type:    3\nData length:  4\n"
              "Message type: 5\nVersion:      6\nChn. ID:      7\n"
              "CM_STATUS\nCM ID:   1\nCM Type: 2\nCM Ver:  3\nSN:      4\n"
              "BUS_STATUS\nChn. ID:  5\nCM ID:    1\nCM Type:  2\nCM Ver:   3\nError#:   6\n"
              "Message#: 7\nSN:       4\n"
              "Time: 1.        5\nTime: 1.5\n0A FF \n");
}

}  // namespace
