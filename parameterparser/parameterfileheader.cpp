// SPDX-License-Identifier: Apache-2.0
// The header and the section table of a tuning file.
#include "parameterparser/parameterfileheader.h"

#include <cstring>

#include "platform/vornalloc.h"
#include "platform/vornosutils.h"

#include "parameterparser/parameterbinaryfile.h"
#include "parameterparser/parameterbytereader.h"
#include "parameterparser/parameterlogging.h"

namespace {

// Header layout: fixed text fields are read at alignment 1 whatever the file's version.
//
// | Offset | Size | Field         | Present from |
// |--------|------|---------------|--------------|
// | 0      | 28   | HeaderTag     | always       |
// | 28     | 4    | FileSize      | always       |
// | 32     | 8    | Version       | always       |
// | 40     | 48   | CreatedBy     | 1.0.2        |
// | 88     | 64   | BinaryTag     | 1.0.2        |
// | 152    | 8    | HeaderFlags   | 3.0.0        |
// | +0     | 4    | SectionOffset | always       |
// | +4     | 4    | SectionCount  | always       |
constexpr char const* HeaderTagText = "ZEL Varitonal Header";
constexpr unsigned int ErrorTextLength = 2048;
// Header flag bit of a compressed file, which is no longer supported.
constexpr unsigned long CompressedFlag = 0x2;
// A file name must be shorter than this many characters.
constexpr size_t MaxFileNameLength = 1023;

enum SectionType : uint32_t
{
    SymbolSection = 0,
    DataSection = 1,
    ModeSection = 2,
    DataTableSection = 3,
    DefinitionSection = 4,
};

void SetErrorText(char* errorText, char const* text)
{
    if (errorText != nullptr)
        Vorn::OsUtils::StrLCpy(errorText, text, ErrorTextLength);
}

// The free-form fields of a header, which the checks read after every field was read.
struct HeaderText
{
    ~HeaderText()
    {
        VornFree(tag, VornTagRelease);
        VornFree(createdBy, VornTagRelease);
    }

    char* tag = nullptr;
    char* createdBy = nullptr;
    uint32_t fileSize = 0;
};

// Steps of the header check that follow a complete read of the fields; the order of the checks
// decides which message a damaged file gets.
bool CheckHeaderFields(unsigned char* buffer, unsigned int length, HeaderText const& text,
                       ParameterFileHeader const& header, char* errorText,
                       IParameterLoggingAPI* log)
{
    if (text.tag == nullptr || text.tag[0] == '\0') {
        SetErrorText(errorText, "Failed to read binary header tag");
        return false;
    }
    if (std::strcmp(text.tag, HeaderTagText) != 0) {
        if (errorText != nullptr)
            Vorn::OsUtils::SNPrintF(errorText, ErrorTextLength, "Invalid binary header tag: %s",
                                    text.tag);
        return false;
    }
    // A compressed file was smaller than its FileSize on purpose; the section reading refuses it.
    if (length < text.fileSize && (header.headerFlags & CompressedFlag) == 0) {
        if (errorText != nullptr)
            Vorn::OsUtils::SNPrintF(
                errorText, ErrorTextLength,
                "Binary header data too small: Expected: %u bytes, Actual: %u bytes",
                static_cast<unsigned int>(text.fileSize), length);
        return false;
    }
    ParameterFileLayout const& layout = header.layout;
    if (!layout.hasBinaryTag) {
        SetErrorText(errorText,
                     "Warning: This is an older binary format, only Default mode data is "
                     "supported. To support multiple modes, please re-generate binary using the "
                     "latest version of Varitonal");
    } else if (layout.unsupported) {
        if (errorText != nullptr)
            Vorn::OsUtils::SNPrintF(errorText, ErrorTextLength,
                                    "Unsupported binary header version : %u.%u.%u. Please "
                                    "re-generate parser code using the latest version of "
                                    "ParameterParser",
                                    layout.version.Parts.Major, layout.version.Parts.Minor,
                                    layout.version.Parts.Patch);
        return false;
    }
    // The checksum's place follows from the buffer's length, not from FileSize, so trailing
    // bytes behind a sound file make it fail.
    bool const crc64 = layout.checksum == ParameterChecksumKind::Crc64;
    if (!ParameterBinaryFile::ValidateCRC(buffer, length, crc64, log)) {
        SetErrorText(errorText, "Binary file CRC validation failed");
        return false;
    }
    return true;
}

void LogVersion(IParameterLoggingAPI* log, ParameterFileLayout const& layout, char const* binaryTag,
                char const* createdBy)
{
    if (log == nullptr)
        return;
    VersionUnion const& version = layout.version;
    if (layout.hasBinaryTag)
        ParameterLogging::Write(
            log, ParameterLogging::LogVerbose,
            "ReadHeader: Binary Version %d.%d.%d BinaryTag: %s, Created By: %s\n",
            version.Parts.Major, version.Parts.Minor, static_cast<int>(version.Parts.Patch),
            binaryTag != nullptr ? binaryTag : "", createdBy != nullptr ? createdBy : "");
    else
        ParameterLogging::Write(
            log, ParameterLogging::LogVerbose,
            "ReadHeader: Binary Version %d.%d.%d < ModeTreeMinVersion, BinaryTag not set\n",
            version.Parts.Major, version.Parts.Minor, static_cast<int>(version.Parts.Patch));
}

// Stores a record of the section table by its type; false for a type no file has.
bool StoreSection(uint32_t type, ParameterSectionTable::SectionInfo const& info,
                  ParameterSectionTable& sections)
{
    switch (type) {
    case SymbolSection:
        sections.symbol = info;
        return true;
    case DataSection:
        sections.data = info;
        return true;
    case ModeSection:
        sections.modes.Add(info);
        return true;
    case DataTableSection:
        sections.dataTable = info;
        return true;
    case DefinitionSection:
        sections.definitions = info;
        return true;
    default:
        return false;
    }
}

} // namespace

ParameterFileHeader::~ParameterFileHeader()
{
    VornFree(binaryTag, VornTagRelease);
}

char* ParameterFileHeader::ReleaseBinaryTag()
{
    char* const tag = binaryTag;
    binaryTag = nullptr;
    return tag;
}

bool ReadFileHeader(unsigned char* buffer, unsigned int length, ParameterFileHeader& header,
                    char* errorText, IParameterLoggingAPI* log)
{
    if (errorText != nullptr)
        errorText[0] = '\0';

    // The reader logs the first short field only; later fields of a short header read as 0. The
    // text fields are read whatever is left, so that the checks can name a damaged tag.
    ParameterByteReader reader(buffer, length, 1, log);
    HeaderText text;
    text.tag = reader.ReadTextField(ParameterFileLayout::HeaderTagLength);
    uint64_t rawVersion = 0;
    bool shortHeader = !reader.ReadU32(text.fileSize) || !reader.ReadU64(rawVersion);
    header.layout = ParameterFileLayout::For(VersionUnion(rawVersion));

    if (header.layout.hasBinaryTag) {
        text.createdBy = reader.ReadTextField(ParameterFileLayout::CreatedByLength);
        char* tag = reader.ReadTextField(ParameterFileLayout::BinaryTagLength);
        VornFree(header.binaryTag, VornTagRelease);
        header.binaryTag = tag;
    }
    LogVersion(log, header.layout, header.binaryTag, text.createdBy);

    uint64_t flags = 0;
    if (!shortHeader && header.layout.hasHeaderFlags) {
        shortHeader = !reader.ReadU64(flags);
        if (!shortHeader)
            header.headerFlags = flags;
    }
    uint32_t offset = 0;
    uint32_t count = 0;
    if (!shortHeader) {
        shortHeader = !reader.ReadU32(offset) || !reader.ReadU32(count);
        if (!shortHeader) {
            header.sectionOffset = offset;
            header.sectionCount = count;
        }
    }
    header.end = reader.Position();

    if (shortHeader) {
        SetErrorText(errorText, "General error parsing binary header data header");
        return false;
    }
    return CheckHeaderFields(buffer, length, text, header, errorText, log);
}

bool ReadSectionRecords(ParameterByteReader& reader, unsigned int count,
                        ParameterSectionTable& sections, char* errorText)
{
    IParameterLoggingAPI* log = reader.Log();
    if (count < ParameterFileLayout::MinSectionCount) {
        if (log != nullptr)
            ParameterLogging::Write(log, ParameterLogging::LogError,
                                    "ReadSectionInfo: Section count %d is less than Min sections "
                                    "%d\n",
                                    static_cast<int>(count),
                                    static_cast<int>(ParameterFileLayout::MinSectionCount));
        return false;
    }
    if (!reader.HasBuffer()) {
        SetErrorText(errorText, "ReadSectionInfo: buffer is nullptr");
        return false;
    }

    // Each field takes FieldStep(4): 12 bytes a record at alignment 1, 24 at alignment 8.
    for (unsigned int i = 0; i < count; ++i) {
        uint32_t type = 0;
        ParameterSectionTable::SectionInfo info = {};
        if (!reader.ReadU32(type) || !reader.ReadU32(info.Offset) || !reader.ReadU32(info.Size)) {
            SetErrorText(errorText, "Error reading data from header sections");
            return false;
        }
        if (!StoreSection(type, info, sections)) {
            if (log != nullptr)
                ParameterLogging::Write(log, ParameterLogging::LogError,
                                        "Invalid binary section type %d\n", static_cast<int>(type));
            return false;
        }
    }
    return true;
}

bool ReadSectionRecords(unsigned char* buffer, unsigned int length, unsigned int& pos,
                        unsigned char alignment, unsigned int count,
                        ParameterSectionTable& sections, char* errorText, IParameterLoggingAPI* log)
{
    ParameterByteReader reader(buffer, length, alignment, log, pos);
    bool const read = ReadSectionRecords(reader, count, sections, errorText);
    pos = reader.Position();
    return read;
}

bool ReadSectionTable(unsigned char* buffer, unsigned int length, ParameterFileHeader const& header,
                      ParameterSectionTable& sections, char* errorText, IParameterLoggingAPI* log)
{
    ParameterByteReader reader(buffer, length, header.layout.alignment, log, header.sectionOffset);
    return ReadSectionRecords(reader, header.sectionCount, sections, errorText);
}

bool FileHasModeTable(char const* fileName, char const* tableName)
{
    if (fileName == nullptr || tableName == nullptr || std::strlen(fileName) >= MaxFileNameLength)
        return false;

    unsigned char* image = nullptr;
    unsigned int size = 0;
    {
        ParameterBinaryFile file(fileName, nullptr);
        size = file.GetLength();
        image = size != 0 ? file.Read(0, size) : nullptr;
    }
    if (image == nullptr)
        return false;

    ParameterFileHeader header;
    ParameterSectionTable sections;
    bool found = false;
    if (ReadFileHeader(image, size, header, nullptr, nullptr) &&
        header.layout.modeNamesSearchable &&
        ReadSectionTable(image, size, header, sections, nullptr, nullptr)) {
        for (unsigned int i = 0; i < sections.modes.Count() && !found; ++i) {
            ParameterByteReader reader(image, size, header.layout.alignment, nullptr,
                                       sections.modes[i].Offset);
            char* name = reader.ReadTextField(header.layout.modeNameLength);
            found = name != nullptr && std::strcmp(name, tableName) == 0;
            VornFree(name, VornTagRelease);
        }
    }
    VornFree(image, VornTagRelease);
    return found;
}
