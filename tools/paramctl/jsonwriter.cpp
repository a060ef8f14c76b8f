// SPDX-License-Identifier: Apache-2.0
// JsonWriter: streaming JSON output.
#include "tools/paramctl/jsonwriter.h"

#include <cstdio>

namespace ParamCtl {

void JsonWriter::BeforeValue()
{
    if (m_afterKey) {
        m_afterKey = false;
        return;
    }
    if (!m_hasItems.empty()) {
        if (m_hasItems.back())
            m_out << ',';
        m_out << '\n' << std::string(2 * m_hasItems.size(), ' ');
        m_hasItems.back() = true;
    }
}

void JsonWriter::Open(char bracket)
{
    BeforeValue();
    m_out << bracket;
    m_hasItems.push_back(false);
}

void JsonWriter::Close(char bracket)
{
    bool const hadItems = m_hasItems.back();
    m_hasItems.pop_back();
    if (hadItems)
        m_out << '\n' << std::string(2 * m_hasItems.size(), ' ');
    m_out << bracket;
    if (m_hasItems.empty())
        m_out << '\n';
}

JsonWriter& JsonWriter::BeginObject()
{
    Open('{');
    return *this;
}

JsonWriter& JsonWriter::EndObject()
{
    Close('}');
    return *this;
}

JsonWriter& JsonWriter::BeginArray()
{
    Open('[');
    return *this;
}

JsonWriter& JsonWriter::EndArray()
{
    Close(']');
    return *this;
}

JsonWriter& JsonWriter::Key(std::string const& key)
{
    String(key);
    m_out << ": ";
    m_afterKey = true;
    return *this;
}

JsonWriter& JsonWriter::String(std::string const& value)
{
    BeforeValue();
    m_out << '"';
    for (unsigned char c : value) {
        switch (c) {
        case '"':
            m_out << "\\\"";
            break;
        case '\\':
            m_out << "\\\\";
            break;
        case '\n':
            m_out << "\\n";
            break;
        case '\t':
            m_out << "\\t";
            break;
        default:
            if (c < 0x20) {
                char escaped[8];
                std::snprintf(escaped, sizeof(escaped), "\\u%04x", c);
                m_out << escaped;
            } else {
                m_out << c;
            }
        }
    }
    m_out << '"';
    return *this;
}

JsonWriter& JsonWriter::Number(uint64_t value)
{
    BeforeValue();
    m_out << value;
    return *this;
}

JsonWriter& JsonWriter::Number(double value)
{
    BeforeValue();
    m_out << value;
    return *this;
}

JsonWriter& JsonWriter::Bool(bool value)
{
    BeforeValue();
    m_out << (value ? "true" : "false");
    return *this;
}

} // namespace ParamCtl
