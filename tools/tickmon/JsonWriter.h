// A small streaming JSON writer with two-space indentation.
//
//   JsonWriter json;
//   json.beginObject();
//   json.key("ticks").value(uint64_t{1667});
//   json.key("intervals").beginArray().value(1).value(2).endArray();
//   json.endObject();
//   json.text();  // {"ticks": 1667, "intervals": [1, 2]} over several lines
//
// Strings are escaped as JSON requires; a non-finite number is written as
// null. The caller keeps keys and values in order; the writer only places
// commas, indentation and quotes.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tickmon {

class JsonWriter {
public:
    JsonWriter& beginObject();
    JsonWriter& endObject();
    JsonWriter& beginArray();
    JsonWriter& endArray();
    JsonWriter& key(const std::string& name);

    JsonWriter& value(const std::string& text);
    JsonWriter& value(const char* text);
    JsonWriter& value(bool flag);
    JsonWriter& value(int64_t number);
    JsonWriter& value(uint64_t number);
    JsonWriter& value(int number) { return value(static_cast<int64_t>(number)); }
    JsonWriter& value(unsigned number) { return value(static_cast<uint64_t>(number)); }
    JsonWriter& value(double number);
    JsonWriter& null();

    /// The document written so far, with a final newline once complete.
    std::string text() const;

    /// `text` as a JSON string literal, quotes included.
    static std::string quote(const std::string& text);

private:
    struct Level {
        bool isObject;
        bool empty;
    };

    void beforeValue();
    void newline();
    JsonWriter& open(char bracket, bool isObject);
    JsonWriter& close(char bracket);

    std::string out;
    std::vector<Level> levels;
    bool afterKey = false;
};

}  // namespace tickmon
