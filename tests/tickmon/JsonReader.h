// A strict JSON reader for the tests: it accepts exactly the grammar of
// RFC 8259 (no trailing commas, no comments, no bare NaN) and gives the
// document as a tree to look values up in.
#pragma once

#include <cctype>
#include <cstdlib>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace json_reader {

struct Value {
    enum class Kind { Null, Bool, Number, String, Array, Object } kind = Kind::Null;
    bool flag = false;
    double number = 0.0;
    std::string text;
    std::vector<Value> items;
    std::map<std::string, Value> members;

    /// The member `name` of an object; throws when there is none.
    const Value& operator[](const std::string& name) const {
        const auto found = members.find(name);
        if (kind != Kind::Object || found == members.end()) {
            throw std::runtime_error("no member " + name);
        }
        return found->second;
    }
    bool has(const std::string& name) const { return members.count(name) != 0; }
};

class Reader {
public:
    explicit Reader(const std::string& text) : in(text) {}

    /// The whole document; throws std::runtime_error on any deviation.
    Value document() {
        Value value = parseValue();
        skipBlanks();
        if (position != in.size()) {
            fail("text after the document");
        }
        return value;
    }

private:
    [[noreturn]] void fail(const std::string& what) const {
        throw std::runtime_error(what + " at offset " + std::to_string(position));
    }
    void skipBlanks() {
        while (position < in.size() &&
               (in[position] == ' ' || in[position] == '\n' || in[position] == '\r' || in[position] == '\t')) {
            ++position;
        }
    }
    bool consume(const std::string& word) {
        if (in.compare(position, word.size(), word) == 0) {
            position += word.size();
            return true;
        }
        return false;
    }
    char peek() const { return position < in.size() ? in[position] : '\0'; }

    Value parseValue() {
        skipBlanks();
        Value value;
        const char c = peek();
        if (c == '{') {
            value.kind = Value::Kind::Object;
            parseObject(value);
        } else if (c == '[') {
            value.kind = Value::Kind::Array;
            parseArray(value);
        } else if (c == '"') {
            value.kind = Value::Kind::String;
            value.text = parseString();
        } else if (consume("true")) {
            value.kind = Value::Kind::Bool;
            value.flag = true;
        } else if (consume("false")) {
            value.kind = Value::Kind::Bool;
        } else if (consume("null")) {
            value.kind = Value::Kind::Null;
        } else {
            value.kind = Value::Kind::Number;
            value.number = parseNumber();
        }
        return value;
    }

    void parseObject(Value& object) {
        ++position;
        skipBlanks();
        if (peek() == '}') {
            ++position;
            return;
        }
        for (;;) {
            skipBlanks();
            if (peek() != '"') {
                fail("expected a member name");
            }
            const std::string name = parseString();
            skipBlanks();
            if (!consume(":")) {
                fail("expected ':'");
            }
            if (object.members.count(name) != 0) {
                fail("duplicate member " + name);
            }
            object.members[name] = parseValue();
            skipBlanks();
            if (consume("}")) {
                return;
            }
            if (!consume(",")) {
                fail("expected ',' or '}'");
            }
        }
    }

    void parseArray(Value& array) {
        ++position;
        skipBlanks();
        if (peek() == ']') {
            ++position;
            return;
        }
        for (;;) {
            array.items.push_back(parseValue());
            skipBlanks();
            if (consume("]")) {
                return;
            }
            if (!consume(",")) {
                fail("expected ',' or ']'");
            }
        }
    }

    std::string parseString() {
        ++position;
        std::string text;
        for (;;) {
            if (position >= in.size()) {
                fail("unterminated string");
            }
            const char c = in[position++];
            if (c == '"') {
                return text;
            }
            if (static_cast<unsigned char>(c) < 0x20) {
                fail("control character in string");
            }
            if (c != '\\') {
                text += c;
                continue;
            }
            const char escaped = peek();
            ++position;
            switch (escaped) {
                case '"':
                case '\\':
                case '/':
                    text += escaped;
                    break;
                case 'n':
                    text += '\n';
                    break;
                case 't':
                    text += '\t';
                    break;
                case 'r':
                    text += '\r';
                    break;
                case 'b':
                    text += '\b';
                    break;
                case 'f':
                    text += '\f';
                    break;
                case 'u': {
                    const std::string hex = in.substr(position, 4);
                    if (hex.size() != 4 || hex.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos) {
                        fail("bad \\u escape");
                    }
                    text += static_cast<char>(std::strtol(hex.c_str(), nullptr, 16));
                    position += 4;
                    break;
                }
                default:
                    fail("bad escape");
            }
        }
    }

    double parseNumber() {
        const size_t start = position;
        consume("-");
        if (consume("0")) {
        } else if (std::isdigit(static_cast<unsigned char>(peek())) != 0) {
            digits();
        } else {
            fail("expected a value");
        }
        if (consume(".")) {
            if (digits() == 0) {
                fail("expected digits after '.'");
            }
        }
        if (peek() == 'e' || peek() == 'E') {
            ++position;
            if (!consume("+")) {
                consume("-");
            }
            if (digits() == 0) {
                fail("expected exponent digits");
            }
        }
        return std::strtod(in.substr(start, position - start).c_str(), nullptr);
    }

    size_t digits() {
        const size_t start = position;
        while (std::isdigit(static_cast<unsigned char>(peek())) != 0) {
            ++position;
        }
        return position - start;
    }

    const std::string& in;
    size_t position = 0;
};

inline Value parse(const std::string& text) { return Reader(text).document(); }

}  // namespace json_reader
