// SPDX-License-Identifier: Apache-2.0
// TunedFile: finding the values a manager holds differently from its file, and writing them back.
#include "tools/paramctl/tunedfile.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <map>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "parameterparser/defaultmodule.h"
#include "parameterparser/moduledata.h"
#include "parameterparser/parameterdefinitions.h"
#include "parameterparser/parametermemberaccess.h"
#include "parameterparser/parametermodule.h"
#include "parameterparser/parameterutilsread.h"
#include "tools/paramctl/filechecksum.h"
#include "tools/paramctl/filelayout.h"
#include "tools/paramctl/loadedfile.h"
#include "tools/paramctl/moduleleaves.h"
#include "tools/writer/numbertext.h"

#include "paramgen/TuningSetManager.writer.h"

namespace ParamCtl {

namespace {

/// The kind in which the file stores a number of element info, read by member's reader.
TuningWriter::NumberKind FileKind(ParameterDefinitionElementInfo const& info,
                                  ParameterMemberDescriptor const* member)
{
    using TuningWriter::NumberKind;
    // Four-byte elements are floats to every reader but the enumerations', which take the bytes
    // as they stand.
    if ((info.Flags & ElementFourByte) != 0)
        return member != nullptr && member->enumeration ? NumberKind::UInt32 : NumberKind::Float;
    switch (info.Type) {
    case TypeInt8:
        return NumberKind::Int8;
    case TypeUInt8:
    case TypeByteLike:
        return NumberKind::UInt8;
    case TypeInt16:
        return NumberKind::Int16;
    case TypeUInt16:
    case TypeShortLike:
        return NumberKind::UInt16;
    case TypeInt32:
    case TypeIntLike:
        return NumberKind::Int32;
    case TypeInt64:
        return NumberKind::Int64;
    case TypeUInt64:
    case TypeLongLike:
        return NumberKind::UInt64;
    case TypeFloat:
        return NumberKind::Float;
    case TypeDouble:
        return NumberKind::Double;
    default:
        return NumberKind::UInt32;
    }
}

/// The little-endian bytes of value as kind stores it.
std::vector<unsigned char> Encode(TuningWriter::NumberKind kind,
                                  TuningWriter::NumberValue const& value, size_t width)
{
    using TuningWriter::NumberKind;
    uint64_t raw = 0;
    if (kind == NumberKind::Float) {
        float const single = static_cast<float>(value.real);
        uint32_t bits = 0;
        std::memcpy(&bits, &single, sizeof(bits));
        raw = bits;
    } else if (kind == NumberKind::Double) {
        std::memcpy(&raw, &value.real, sizeof(raw));
    } else if (kind == NumberKind::Int8 || kind == NumberKind::Int16 || kind == NumberKind::Int32 ||
               kind == NumberKind::Int64) {
        raw = static_cast<uint64_t>(value.integer);
    } else {
        raw = value.unsignedInteger;
    }
    std::vector<unsigned char> bytes(width);
    for (size_t i = 0; i < width; ++i)
        bytes[i] = static_cast<unsigned char>(raw >> (8 * i));
    return bytes;
}

/// The compiled member at the end of steps in type; null if the path leaves the type.
ParameterMemberDescriptor const* MemberAt(ParameterTypeDescriptor const* type,
                                          std::vector<PathStep> const& steps)
{
    ParameterMemberDescriptor const* found = nullptr;
    for (PathStep const& step : steps) {
        found = nullptr;
        for (uint32_t i = 0; type != nullptr && i < type->memberCount; ++i) {
            if (!type->members[i].hidden && step.name == type->members[i].name)
                found = &type->members[i];
        }
        if (found == nullptr)
            return nullptr;
        type = found->type;
    }
    return found;
}

} // namespace

bool TuneFile(std::vector<unsigned char>& bytes, ParameterSetManager& tuned, TunedChanges& changes,
              std::string& reason)
{
    // What the file says, read afresh from its own bytes.
    std::vector<unsigned char> copy = bytes;
    ToolSetManager original;
    if (!original.LoadBinaryParameters(copy.data(), copy.size()) &&
        original.GetSymbolTable() == nullptr) {
        reason = original.GetErrorString();
        return false;
    }
    FileLayout layout;
    if (!layout.Open(bytes, original, reason))
        return false;

    TuningWriter::InstanceCatalogue const& catalogue = ParamSchema::TuningSetManager::Instances();
    ParameterFileSymbolTable const* table = tuned.GetSymbolTable();
    for (unsigned int i = 0; table != nullptr && i < table->Modules().Count(); ++i) {
        ModuleData const* data = table->Modules()[i];
        ParameterModule* now = data != nullptr ? InstanceOf(tuned, *data) : nullptr;
        if (now == nullptr || !now->loaded)
            continue;
        ParameterModule* before = InstanceOf(original, *data);
        TuningWriter::InstanceSchema const* schema = catalogue.Find(now->moduleName);
        if (before == nullptr || schema == nullptr)
            continue;
        ModuleLeaves const nowLeaves = ReadModuleLeaves(*now);
        ModuleLeaves const beforeLeaves = ReadModuleLeaves(*before);
        std::string const where = std::string(now->moduleName) + " in " +
                                  NamedModePath(data->ModePath != nullptr ? data->ModePath : "");
        bool wrote = false;
        for (auto const& [key, text] : nowLeaves) {
            auto const old = beforeLeaves.find(key);
            if (old != beforeLeaves.end() && old->second == text)
                continue;
            std::string const shown = LeafName(key);
            std::vector<PathStep> steps;
            NumberPlace place;
            std::string why;
            if (!SplitValuePath(key.first, steps) ||
                !layout.Locate(data->ID, data->NameHash, *schema->type, steps,
                               key.second < 0 ? 0 : static_cast<unsigned int>(key.second), place,
                               why)) {
                changes.refused.push_back(where + ": " + shown + ": " + why);
                continue;
            }
            TuningWriter::NumberKind const kind =
                FileKind(*place.info, MemberAt(schema->type, steps));
            TuningWriter::NumberValue value;
            if (!TuningWriter::ParseNumber(kind, text, value, why)) {
                changes.refused.push_back(where + ": " + shown + ": in the file's type, " + why);
                continue;
            }
            size_t const width =
                (place.info->Flags & ElementFourByte) != 0 ? 4 : TypeCodeWidth(place.info->Type);
            std::vector<unsigned char> const encoded = Encode(kind, value, width);
            std::copy(encoded.begin(), encoded.end(),
                      bytes.begin() + static_cast<long>(place.offset));
            ++changes.values;
            wrote = true;
        }
        changes.records += wrote ? 1 : 0;
    }
    PutChecksum(bytes, original.GetBinaryVersion());
    return true;
}

bool WriteFileAtomically(std::string const& path, std::vector<unsigned char> const& bytes,
                         std::string& reason)
{
    std::string temporary = path + ".XXXXXX";
    int const descriptor = mkstemp(&temporary[0]);
    if (descriptor < 0) {
        reason = std::strerror(errno);
        return false;
    }
    // The new file gets the permissions a plain create would give it, not mkstemp's 0600.
    mode_t const mask = umask(0);
    umask(mask);
    bool ok = fchmod(descriptor, 0666 & ~mask) == 0;
    size_t written = 0;
    while (ok && written < bytes.size()) {
        ssize_t const step = write(descriptor, bytes.data() + written, bytes.size() - written);
        if (step < 0 && errno == EINTR)
            continue;
        ok = step > 0;
        written += ok ? static_cast<size_t>(step) : 0;
    }
    ok = ok && fsync(descriptor) == 0;
    int const error = errno;
    ok = close(descriptor) == 0 && ok;
    if (ok && std::rename(temporary.c_str(), path.c_str()) == 0)
        return true;
    reason = std::strerror(ok ? errno : error);
    unlink(temporary.c_str());
    return false;
}

} // namespace ParamCtl
