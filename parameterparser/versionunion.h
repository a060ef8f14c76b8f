// SPDX-License-Identifier: Apache-2.0
// VersionUnion: a major.minor.patch version that is also one 64-bit value in files.
#pragma once

#include <cstdint>

#include "parameterparser/parameterexport.h"

/// Eight bytes: Major (u16), Minor (u16), Patch (u32) in memory and file order; the raw view is
/// the little-endian 64-bit value over them (3.0.1 is 0x100000003). Comparison goes by parts,
/// never by the raw value.
union PARAMETERPARSER_API VersionUnion
{
    struct
    {
        uint16_t Major;
        uint16_t Minor;
        uint32_t Patch;
    } Parts;
    unsigned long Raw;

    VersionUnion() : Raw(0) {}
    explicit VersionUnion(unsigned long raw) : Raw(raw) {}
    VersionUnion(unsigned short major, unsigned short minor, unsigned int patch) : Raw(0)
    {
        Parts.Major = major;
        Parts.Minor = minor;
        Parts.Patch = patch;
    }

    /// 1 if this is greater, -1 if less, 0 if equal; Major, then Minor, then Patch decide.
    int Compare(VersionUnion const& other) const
    {
        if (Parts.Major != other.Parts.Major)
            return Parts.Major > other.Parts.Major ? 1 : -1;
        if (Parts.Minor != other.Parts.Minor)
            return Parts.Minor > other.Parts.Minor ? 1 : -1;
        if (Parts.Patch != other.Parts.Patch)
            return Parts.Patch > other.Parts.Patch ? 1 : -1;
        return 0;
    }

    bool operator==(VersionUnion const& other) const { return Compare(other) == 0; }
    bool operator!=(VersionUnion const& other) const { return Compare(other) != 0; }
    bool operator>(VersionUnion const& other) const { return Compare(other) > 0; }
    bool operator>=(VersionUnion const& other) const { return Compare(other) >= 0; }
    bool operator<(VersionUnion const& other) const { return Compare(other) < 0; }
    bool operator<=(VersionUnion const& other) const { return Compare(other) <= 0; }
};

static_assert(sizeof(VersionUnion) == 8, "VersionUnion is read from files as 8 bytes");
