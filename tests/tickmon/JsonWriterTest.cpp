#include "JsonWriter.h"

#include <gtest/gtest.h>

#include <limits>

#include "JsonReader.h"

namespace tickmon {
namespace {

TEST(JsonWriter, WritesNestedDocumentWithIndentation) {
    JsonWriter json;
    json.beginObject();
    json.key("name").value("probe");
    json.key("count").value(uint64_t{1667});
    json.key("offset").value(int64_t{-3});
    json.key("ok").value(true);
    json.key("list").beginArray().value(1).value(2).endArray();
    json.key("none").null();
    json.key("empty").beginObject().endObject();
    json.endObject();
    EXPECT_EQ(json.text(),
              "{\n"
              "  \"name\": \"probe\",\n"
              "  \"count\": 1667,\n"
              "  \"offset\": -3,\n"
              "  \"ok\": true,\n"
              "  \"list\": [\n"
              "    1,\n"
              "    2\n"
              "  ],\n"
              "  \"none\": null,\n"
              "  \"empty\": {}\n"
              "}\n");
}

TEST(JsonWriter, EscapesStrings) {
    EXPECT_EQ(JsonWriter::quote("a\"b\\c\nd\te\x01"), "\"a\\\"b\\\\c\\nd\\te\\u0001\"");
}

TEST(JsonWriter, NumbersReadBackExactly) {
    JsonWriter json;
    json.beginArray().value(0.1).value(6000000.5).value(1e-7).value(std::numeric_limits<double>::infinity());
    json.value(std::numeric_limits<double>::quiet_NaN()).endArray();
    const json_reader::Value doc = json_reader::parse(json.text());
    ASSERT_EQ(doc.items.size(), 5u);
    EXPECT_EQ(doc.items[0].number, 0.1);
    EXPECT_EQ(doc.items[1].number, 6000000.5);
    EXPECT_EQ(doc.items[2].number, 1e-7);
    EXPECT_EQ(doc.items[3].kind, json_reader::Value::Kind::Null);
    EXPECT_EQ(doc.items[4].kind, json_reader::Value::Kind::Null);
}

TEST(JsonWriter, ExtremeIntegersAreExact) {
    JsonWriter json;
    json.beginArray().value(std::numeric_limits<int64_t>::min()).value(std::numeric_limits<uint64_t>::max());
    json.endArray();
    EXPECT_NE(json.text().find("-9223372036854775808"), std::string::npos);
    EXPECT_NE(json.text().find("18446744073709551615"), std::string::npos);
}

TEST(JsonReaderForTests, RefusesInvalidDocuments) {
    for (const char* bad :
         {"{\"a\": 1,}", "[1 2]", "{\"a\" 1}", "nan", "[01]", "\"tab\there\"", "{} {}", "{\"a\":1,\"a\":2}"}) {
        EXPECT_THROW(json_reader::parse(bad), std::runtime_error) << bad;
    }
}

}  // namespace
}  // namespace tickmon
