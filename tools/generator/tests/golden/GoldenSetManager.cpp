// Generated from tools/generator/tests/golden/GoldenSetManager.list by the module generator. Do not edit.
#include "paramgen/GoldenSetManager.h"

#include "paramgen/goldensample.h"

namespace {

// Registration order is the list's order.
ConcreteSetManager::Registration const Registrations[] = {
    {"sampleA", &ConcreteSetManager::MakeFactory<::goldensample::sampleTypeClass>},
    {"sampleB", &ConcreteSetManager::MakeFactory<::goldensample::sampleTypeClass>},
};

} // namespace

GoldenSetManager::GoldenSetManager(char const* name)
    : ConcreteSetManager(Traits{"GoldenSetManager", true, false}, name, Registrations, sizeof(Registrations) / sizeof(Registrations[0]))
{
}

GoldenSetManager::GoldenSetManager(GoldenSetManager* main, unsigned char modeTableIndex)
    : ConcreteSetManager("GoldenSetManager", main, modeTableIndex), m_mainSet(main)
{
}

GoldenSetManager::~GoldenSetManager()
{
    // The live tuning worker calls into this object: it stops before any part of the
    // object goes, this one first.
    StopKnobbyWorker();
}

GoldenSetManager* GoldenSetManager::GetMainSetManager()
{
    GoldenSetManager* main = this;
    while (main->m_mainSet != nullptr)
        main = main->m_mainSet;
    return main;
}

GoldenSetManager* GoldenSetManager::CreateSetManager(unsigned char modeTableIndex)
{
    GoldenSetManager* main = GetMainSetManager();
    if (!main->AcceptModeTableIndex(modeTableIndex))
        return nullptr;
    return new GoldenSetManager(main, modeTableIndex);
}

GoldenSetManager* GoldenSetManager::CreateSetManager(char const* modeTableName)
{
    GoldenSetManager* main = GetMainSetManager();
    unsigned char modeTableIndex = 0;
    if (!main->FindModeTableIndex(modeTableName, modeTableIndex))
        return nullptr;
    return new GoldenSetManager(main, modeTableIndex);
}

::goldensample::sampleType* GoldenSetManager::GetModule_sampleA(TuningMode const* modeBranch, unsigned int modeCount,
    ::goldensample::sampleType* previous)
{
    return static_cast<::goldensample::sampleTypeClass*>(GetModuleInternal(m_modeTableIndex, "sampleA", modeBranch, modeCount,
        static_cast<::goldensample::sampleTypeClass*>(previous), true));
}

::goldensample::sampleType* GoldenSetManager::GetModule_sampleB(TuningMode const* modeBranch, unsigned int modeCount,
    ::goldensample::sampleType* previous)
{
    return static_cast<::goldensample::sampleTypeClass*>(GetModuleInternal(m_modeTableIndex, "sampleB", modeBranch, modeCount,
        static_cast<::goldensample::sampleTypeClass*>(previous), true));
}
