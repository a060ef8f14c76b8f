// SPDX-License-Identifier: Apache-2.0
// FileLayout: locating a module's numbers in a file by the file's own schema.
#include "tools/paramctl/filelayout.h"

#include <cstdlib>
#include <cstring>

#include "parameterparser/parameterdefinitions.h"
#include "parameterparser/parameterfilesymboltableentry.h"
#include "parameterparser/parametermemberaccess.h"
#include "parameterparser/parametersetmanager.h"
#include "parameterparser/parameterutilsread.h"

namespace ParamCtl {

namespace {

ParameterMemberDescriptor const* FindMember(ParameterTypeDescriptor const& type,
                                            std::string const& name)
{
    for (uint32_t i = 0; i < type.memberCount; ++i) {
        if (!type.members[i].hidden && name == type.members[i].name)
            return &type.members[i];
    }
    return nullptr;
}

} // namespace

bool SplitValuePath(std::string const& path, std::vector<PathStep>& steps)
{
    steps.clear();
    size_t start = 0;
    while (start <= path.size()) {
        size_t end = path.find('.', start);
        if (end == std::string::npos)
            end = path.size();
        std::string part = path.substr(start, end - start);
        PathStep step;
        size_t const open = part.find('[');
        if (open != std::string::npos) {
            char* stop = nullptr;
            unsigned long const index = std::strtoul(part.c_str() + open + 1, &stop, 10);
            if (stop == part.c_str() + open + 1 || std::strcmp(stop, "]") != 0 || index > 0xFFFFFFu)
                return false;
            step.index = static_cast<unsigned int>(index);
            part.resize(open);
        }
        if (part.empty())
            return false;
        step.name = part;
        steps.push_back(step);
        start = end + 1;
    }
    return !steps.empty();
}

bool FileLayout::Open(std::vector<unsigned char>& bytes, ParameterSetManager& manager,
                      std::string& reason)
{
    VersionUnion const version = manager.GetBinaryVersion();
    ParameterFileSymbolTable const* loaded = manager.GetSymbolTable();
    if (loaded == nullptr || version < VersionUnion(6, 0, 0)) {
        reason = "files below 6.0.0 name no module that a build can find, so none of their values "
                 "is tuned";
        return false;
    }
    ParameterSetManager::SectionInfo const definitions = manager.GetDefinitionSection();
    if (definitions.Size == 0) {
        reason = "the file carries no schema (definition table) by which to place its values";
        return false;
    }
    m_bytes = &bytes;
    m_fixedCounts = version >= VersionUnion(7, 0, 0);
    m_table = std::make_unique<ParameterFileSymbolTable>(&manager, loaded->GetAlignment(), version);
    auto const length = static_cast<unsigned int>(bytes.size());
    if (!m_table->Load(bytes.data(), length, nullptr, nullptr, length, manager.GetSymbolSection(),
                       manager.GetDataTableSection(), manager.GetDataSection(), definitions,
                       &manager, true)) {
        reason = "its tables cannot be read";
        return false;
    }
    return true;
}

bool FileLayout::EntryBlock(unsigned int id, bool symbol, Block& block)
{
    ParameterFileSymbolTableEntry entry;
    if (!m_table->Find(entry, id, symbol))
        return false;
    unsigned char const* const begin = m_bytes->data();
    if (entry.Data == nullptr || entry.Data < begin ||
        static_cast<size_t>(entry.Data - begin) > m_bytes->size() - entry.Size)
        return false;
    block.start = static_cast<size_t>(entry.Data - begin);
    block.size = entry.Size;
    return true;
}

bool FileLayout::ReadWord(Block const& block, size_t at, uint32_t& value) const
{
    if (at > block.size || block.size - at < 4)
        return false;
    unsigned char const* bytes = m_bytes->data() + block.start + at;
    value = static_cast<uint32_t>(bytes[0]) | static_cast<uint32_t>(bytes[1]) << 8 |
            static_cast<uint32_t>(bytes[2]) << 16 | static_cast<uint32_t>(bytes[3]) << 24;
    return true;
}

bool FileLayout::Locate(unsigned int recordId, unsigned long moduleHash,
                        ParameterTypeDescriptor const& type, std::vector<PathStep> const& steps,
                        unsigned int index, NumberPlace& place, std::string& reason)
{
    Block block;
    ParameterDefinitionStructure const* structure = m_table->FindModuleStructure(moduleHash);
    if (structure == nullptr || !EntryBlock(recordId, true, block)) {
        reason = structure == nullptr ? "the file's schema has no such module"
                                      : "its module entry cannot be read";
        return false;
    }
    ParameterTypeDescriptor const* compiled = &type;
    size_t structureStart = 0; // in block: where the structure's load limit stands
    for (size_t k = 0; k < steps.size(); ++k) {
        bool const last = k + 1 == steps.size();
        ParameterMemberDescriptor const* member =
            compiled != nullptr ? FindMember(*compiled, steps[k].name) : nullptr;
        ParameterDefinitionElement const* element =
            member != nullptr ? structure->FindChild(member->nameHash) : nullptr;
        if (element == nullptr || element->Info == nullptr) {
            reason = "not in the file's schema";
            return false;
        }
        ParameterDefinitionElementInfo const& info = *element->Info;
        size_t const at = structureStart + info.Offset;
        // Where the member's elements start, and how many the file holds.
        size_t first = at;
        uint32_t count = info.Count;
        if ((info.Flags & ElementVariableCount) != 0) {
            uint32_t id = 0;
            if (!ReadWord(block, at, count) || !ReadWord(block, at + 4, id) ||
                (count != 0 && !EntryBlock(id, false, block))) {
                reason = "its data entry cannot be read";
                return false;
            }
            first = 0;
        } else if (m_fixedCounts && (info.Flags & ElementFixedCount) != 0) {
            if (!ReadWord(block, at, count)) {
                reason = "its count cannot be read";
                return false;
            }
            first = at + 4;
        }
        unsigned int const wanted = last ? index : steps[k].index;
        if (wanted >= count) {
            reason = "the file holds " + std::to_string(count) + " elements";
            return false;
        }
        if (!last) {
            if (info.Type != TypeStructure || info.Structure == nullptr) {
                reason = "the file holds no structure there";
                return false;
            }
            structure = info.Structure;
            structureStart = first + static_cast<size_t>(wanted) * structure->Size;
            compiled = member->type;
            continue;
        }
        if (!ParameterReadDetail::IsNumberCode(info.Type)) {
            reason = "the file holds no number there";
            return false;
        }
        size_t const width = (info.Flags & ElementFourByte) != 0 ? 4 : TypeCodeWidth(info.Type);
        size_t const offset = first + static_cast<size_t>(wanted) * width;
        if (offset > block.size || block.size - offset < width) {
            reason = "it lies past the end of its data";
            return false;
        }
        place.offset = block.start + offset;
        place.info = &info;
        return true;
    }
    reason = "not a number";
    return false;
}

} // namespace ParamCtl
