// SPDX-License-Identifier: Apache-2.0
// JsonWriter: a small streaming JSON emitter for paramctl's --json output.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

namespace ParamCtl {

/// Writes one JSON document with two-space indentation. Keys are given with Key() inside objects;
/// commas are placed automatically.
class JsonWriter
{
public:
    explicit JsonWriter(std::ostream& out) : m_out(out) {}

    JsonWriter& BeginObject();
    JsonWriter& EndObject();
    JsonWriter& BeginArray();
    JsonWriter& EndArray();
    JsonWriter& Key(std::string const& key);
    JsonWriter& String(std::string const& value);
    JsonWriter& Number(uint64_t value);
    JsonWriter& Number(double value);
    JsonWriter& Bool(bool value);

    /// Key and value in one call.
    template <typename T> JsonWriter& Field(std::string const& key, T const& value)
    {
        Key(key);
        return Write(value);
    }

private:
    JsonWriter& Write(std::string const& value) { return String(value); }
    JsonWriter& Write(char const* value) { return String(value); }
    JsonWriter& Write(bool value) { return Bool(value); }
    JsonWriter& Write(double value) { return Number(value); }
    JsonWriter& Write(uint64_t value) { return Number(value); }
    JsonWriter& Write(uint32_t value) { return Number(static_cast<uint64_t>(value)); }
    JsonWriter& Write(int value) { return Number(static_cast<uint64_t>(value)); }

    void BeforeValue();
    void Open(char bracket);
    void Close(char bracket);

    std::ostream& m_out;
    std::vector<bool> m_hasItems; ///< per open container: something was written in it
    bool m_afterKey = false;
};

} // namespace ParamCtl
