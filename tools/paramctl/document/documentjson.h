// SPDX-License-Identifier: Apache-2.0
// The JSON form of a tuning file document, and the small conversions its fields share.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace ParamCtl {

/// Members keep the order they are added in; 64-bit integers stay exact.
using Json = nlohmann::ordered_json;

/// "0x" and 16 lower-case hex digits.
std::string Hex64(uint64_t value);

/// Bytes as lower-case hex, two digits a byte.
std::string HexBytes(unsigned char const* data, size_t size);

/// The bytes of a hex text; false for an odd length or a character that is no hex digit.
[[nodiscard]] bool BytesOfHex(std::string const& text, std::vector<uint8_t>& bytes);

/// True for a C identifier: a letter or '_', then letters, digits and '_'.
bool IsIdentifier(std::string const& name);

/// The string member key of object; empty when object has no such member or it is no string
/// (a definition record's type is a number where the file's type code has no name).
std::string StringField(Json const& object, char const* key);

/// A number given as a JSON unsigned integer or as a "0x" hex text; false for anything else.
[[nodiscard]] bool UnsignedOf(Json const& value, uint64_t& number);

} // namespace ParamCtl
