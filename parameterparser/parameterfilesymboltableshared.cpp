// SPDX-License-Identifier: Apache-2.0
// ParameterFileSymbolTable's shared objects: each call is checked against the lookup rows, which
// give the entry's duplicate group, and handed to the shared-array registry.
#include "platform/vornosutils.h"

#include "parameterparser/parameterfilesymboltable.h"
#include "parameterparser/parameterlogging.h"

void ParameterFileSymbolTable::LogInvalidCall(bool publish, bool isModule, unsigned int id,
                                              void* object, int loc) const
{
    EntryTable const& side = Side(isModule);
    // SetDupObject names the object and prints the place as the side and the dup type
    // ("Loc: Data:12"); GetDupObject prints the dup type alone.
    char objectText[48] = "";
    char place[32];
    if (publish) {
        Vorn::OsUtils::SNPrintF(objectText, sizeof(objectText), "Obj: %p, ", object);
        Vorn::OsUtils::SNPrintF(place, sizeof(place), "%s:%d", isModule ? "Symbol" : "Data", loc);
    } else {
        Vorn::OsUtils::SNPrintF(place, sizeof(place), "%d", loc);
    }
    char duplicate[40] = "";
    if (side.lookup != nullptr && id <= side.count)
        Vorn::OsUtils::SNPrintF(duplicate, sizeof(duplicate), "EntryLookup[id].Dup: %u, ",
                                side.lookup[id].Duplicate);
    ParameterLogging::Write(Logger(), ParameterLogging::LogError,
                            "%s called with invalid values, This: %p, IsModule: %d, ID: %u, "
                            "%sDupCount: %u, LookupCnt: %u, DupEntries: %p, EntryLookup: %p, "
                            "%sLoc: %s\n",
                            publish ? "SetDupObject" : "GetDupObject",
                            static_cast<void const*>(this), isModule ? 1 : 0, id, objectText,
                            m_shared.GroupCount(isModule), side.count,
                            static_cast<void const*>(m_shared.Lists(isModule)),
                            static_cast<void const*>(side.lookup), duplicate, place);
}

unsigned int ParameterFileSymbolTable::GroupOf(bool isModule, unsigned int id, bool& invalid) const
{
    EntryTable const& side = Side(isModule);
    invalid = false;
    if (side.lookup == nullptr || id > side.count) {
        invalid = true;
        return 0;
    }
    unsigned int const group = side.lookup[id].Duplicate;
    if (group != 0 && m_shared.Records(isModule, group) == nullptr)
        invalid = true;
    return invalid ? 0 : group;
}

DupObjInfo* ParameterFileSymbolTable::GetDupObjectInternal(bool isModule, unsigned int id, int loc,
                                                           bool lock, uintptr_t elementType)
{
    bool invalid = false;
    unsigned int const group = GroupOf(isModule, id, invalid);
    if (invalid) {
        LogInvalidCall(false, isModule, id, nullptr, loc);
        return nullptr;
    }
    // A block that is not shared takes no lock at all.
    if (group == 0)
        return nullptr;
    return m_shared.Take(isModule, group, loc, lock, elementType);
}

DupObjInfo* ParameterFileSymbolTable::SetDupObject(bool isModule, unsigned int id, void* object,
                                                   int loc, unsigned int elementCount,
                                                   uintptr_t elementType)
{
    bool invalid = false;
    unsigned int const group = GroupOf(isModule, id, invalid);
    if (invalid) {
        LogInvalidCall(true, isModule, id, object, loc);
        return nullptr;
    }
    if (group == 0)
        return nullptr;
    return m_shared.Publish(isModule, id, group, object, loc, elementCount, elementType);
}
