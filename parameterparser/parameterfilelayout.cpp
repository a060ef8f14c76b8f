// SPDX-License-Identifier: Apache-2.0
// ParameterFileLayout: the version gates of the file format, in one place.
#include "parameterparser/parameterfilelayout.h"

namespace {

// Bytes of a symbol entry in the table's size. Padded files count 76 bytes an entry while the
// entries themselves take 72: the reader consumes 72 and the table's size is a multiple of 76.
unsigned int SymbolEntrySize(ParameterFileLayout const& layout)
{
    if (layout.positionalIds)
        return 32;
    if (layout.hasDuplicateId)
        return 60;
    if (layout.alignment == 1)
        return layout.symbolSpareBytes ? 64 : 56;
    return 76;
}

// Bytes of one mode entry: Mode ID, mode, Parent ID, then the Link ID and the Flags where the
// version has them. Unpadded files gained the Link ID with 3.0.1, the first unpadded version
// after 2.0.0; at alignment 8 every field takes 8 bytes.
unsigned int ModeEntrySize(ParameterFileLayout const& layout)
{
    if (layout.alignment != 1)
        return layout.modeHasLink ? 32 : 24;
    if (layout.version < VersionUnion(3, 0, 1))
        return 16;
    return layout.modeHasFlags ? 24 : 20;
}

} // namespace

ParameterFileLayout ParameterFileLayout::For(VersionUnion const& version)
{
    bool const padded = version >= VersionUnion(1, 1, 0) && version < VersionUnion(3, 0, 1);
    return For(version, padded ? 8 : 1);
}

ParameterFileLayout ParameterFileLayout::For(VersionUnion const& version, unsigned char alignment)
{
    ParameterFileLayout layout;
    layout.version = version;
    layout.alignment = alignment;
    bool const unpadded = alignment == 1;
    layout.unsupported = version > LatestSupported();
    layout.hasBinaryTag = version >= VersionUnion(1, 0, 2);
    layout.hasHeaderFlags = version >= VersionUnion(3, 0, 0);

    bool const hashed = version >= VersionUnion(6, 0, 0);
    layout.checksum = hashed ? ParameterChecksumKind::Crc64 : ParameterChecksumKind::Crc32;
    layout.positionalIds = hashed;
    layout.structureLengthWord = hashed;
    layout.symbolSpareBytes = unpadded && version < VersionUnion(3, 0, 1);
    layout.hasDuplicateId = version > VersionUnion(3, 0, 1);
    layout.symbolEntrySize = SymbolEntrySize(layout);
    if (version >= VersionUnion(4, 0, 0))
        layout.dataEntrySize = hashed ? 12 : 16;

    bool const latest = version >= VersionUnion(7, 0, 0);
    layout.fixedArrayCounts = latest;
    layout.modeNamesSearchable = latest;
    if (latest)
        layout.modeNameLength = 128;
    else if (version >= VersionUnion(4, 0, 0))
        layout.modeNameLength = 32;
    layout.modeHasLink = version >= VersionUnion(2, 0, 0);
    layout.modeHasFlags = version >= VersionUnion(5, 0, 0);
    layout.modeEntrySize = ModeEntrySize(layout);
    return layout;
}
