// SPDX-License-Identifier: Apache-2.0
// ParameterSetManager: reading the file again beside the generation in service, and merging the
// modules of a second manager.
#include <cstring>
#include <new>

#include "platform/vornalloc.h"

#include "parameterparser/modeentry.h"
#include "parameterparser/parameterbinaryfile.h"
#include "parameterparser/parametermodetable.h"
#include "parameterparser/parametersetmanager.h"

// The command thread of the live tuning service looks modules up and reads values on the
// manager at any time; a reload frees and replaces the tables it walks, and an update moves
// modules between maps it reads. The command thread is held off the manager meanwhile.
class ParameterSetManager::KnobbyPause
{
public:
    explicit KnobbyPause(ParameterSetManager* manager) : m_manager(manager)
    {
        if (m_manager != nullptr)
            m_manager->PauseKnobbyWorker();
    }

    ~KnobbyPause()
    {
        if (m_manager != nullptr)
            m_manager->ResumeKnobbyWorker();
    }

    KnobbyPause(KnobbyPause const&) = delete;
    KnobbyPause& operator=(KnobbyPause const&) = delete;

private:
    ParameterSetManager* m_manager;
};

bool ParameterSetManager::ReloadBinaryParameters(bool bufferMode)
{
    if (m_mainSetManager != nullptr)
        return MainManager()->ReloadBinaryParameters(bufferMode);

    if (m_fileName[0] == '\0') {
        SetError("ReloadBinaryParameters called with empty file name");
        return false;
    }
    KnobbyPause const pause(this);
    ParameterLogging::Write(this, ParameterLogging::LogVerbose, "Reloading binary file %s%s\n",
                            m_fileName, bufferMode ? " in buffer mode" : "");

    // The generation before last goes now; the one in service is parked in its place.
    FreeReplacedParameters();
    m_store.Park();
    m_modeSections.Clear();

    // The name outlives the free, so that the identifier of the new generation is again the
    // name with the new tag. It is taken out of the free's reach, together with an identifier
    // that is the name itself.
    char* const name = m_name;
    if (m_loggingIdentifier == name)
        m_loggingIdentifier = nullptr;
    m_name = nullptr;
    FreeBinaryParameters();
    m_name = name;
    m_loggingIdentifier = name;

    bool loaded = false;
    if (!bufferMode) {
        loaded = LoadBinaryParameters(m_fileName);
    } else {
        auto* file = new (std::nothrow) ParameterBinaryFile(m_fileName, this);
        if (file == nullptr || !file->IsValid()) {
            SetError("ReloadBinaryParameters: Failed to open file");
        } else {
            // From here on the manager is a buffer-mode manager, whatever the load gives.
            std::memset(m_fileName, 0, sizeof(m_fileName));
            unsigned int const size = file->GetLength();
            unsigned char* image = size != 0 ? file->Read(0, size) : nullptr;
            if (image == nullptr) {
                SetError("ReloadBinaryParameters: Failed to allocate space to read data from "
                         "file");
            } else {
                loaded = LoadBinaryParameters(image, size);
                VornFree(image, VornTagRelease);
            }
        }
        delete file;
    }

    if (loaded)
        m_modeTree.CarryReferenceCounts();
    return loaded;
}

void ParameterSetManager::FreeReplacedParameters()
{
    if (m_mainSetManager != nullptr) {
        MainManager()->FreeReplacedParameters();
        return;
    }
    ParameterLogging::Write(this, ParameterLogging::LogVerbose, "FreeReplacedParameters called\n");
    m_store.FreeParked();
}

bool ParameterSetManager::UpdateParameters(ParameterSetManager* update)
{
    if (m_mainSetManager != nullptr)
        return MainManager()->UpdateParameters(update);
    if (update == nullptr || !m_loadStatus)
        return false;
    ParameterSetManager* const source = update->MainManager();
    if (source == this) {
        // Every module taken from a node would be put back into the same map.
        SetError("UpdateParameters: Error: update is this manager, unable to update parameters");
        return false;
    }
    KnobbyPause const pause(this);
    KnobbyPause const sourcePause(source);

    ParameterModeTree const& tree = m_modeTree;
    ParameterModeTree const& updateTree = source->m_modeTree;
    unsigned int const count = tree.Count();
    unsigned int const updateCount = updateTree.Count();
    if (count == 1 && updateCount == 1)
        return UpdateParameters(tree.Table(0U)->rootMode, updateTree.Table(0U)->rootMode, source);

    // A table is merged only into the table at its own index, and only when the names agree.
    bool result = true;
    bool matched = false;
    for (unsigned int k = 0; k < updateCount && k < count && result; ++k) {
        char const* const name = tree.Table(k)->name;
        char const* const updateName = updateTree.Table(k)->name;
        bool const same =
            (name == nullptr && updateName == nullptr) ||
            (name != nullptr && updateName != nullptr && std::strcmp(name, updateName) == 0);
        if (!same)
            continue;
        matched = true;
        result = UpdateParameters(tree.Table(k)->rootMode, updateTree.Table(k)->rootMode, source);
    }
    if (!matched) {
        SetError("UpdateParameters: Error: No matching module tables names found, unable to "
                 "update parameters");
        return false;
    }
    return result;
}

bool ParameterSetManager::UpdateParameters(ModeEntry* target, ModeEntry* source,
                                           ParameterSetManager* update)
{
    if (m_mainSetManager != nullptr)
        return MainManager()->UpdateParameters(target, source, update);
    if (target == nullptr || source == nullptr)
        return false;
    ParameterSetManager* const other = update != nullptr ? update->MainManager() : nullptr;
    if (other == this || target == source) {
        // A merge within one manager takes modules out of a map that it puts them back into.
        SetError("UpdateParameters: Error: update is this manager, unable to update parameters");
        return false;
    }
    // Nested calls for the children find both workers stopped already.
    KnobbyPause const pause(this);
    KnobbyPause const otherPause(other);

    // The later siblings of source go into target as well; the calls for them below then find
    // their maps empty.
    m_store.MoveModules(target, source, other);

    bool result = true;
    for (ModeEntry* child = source->firstChild; child != nullptr; child = child->nextSibling) {
        TuningMode step = {};
        step.mode = child->mode.Parts.mode;
        step.subMode = child->mode.Parts.subMode;
        result = UpdateParameters(target->FindMode(&step), child, update);
        if (!result)
            break;
    }
    return result;
}
