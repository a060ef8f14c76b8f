// Generated from tools/generator/tests/golden/goldensample.schema by the module generator. Do not edit.
#include "paramgen/goldensample.h"

#include <cstddef>
#include <mutex>

#include "parameterparser/moduledata.h"
#include "parameterparser/parameterlogging.h"
#include "parameterparser/parametervaluepath.h"

namespace goldensample {

namespace {

ParameterMemberDescriptor const sampleTypeMembers[] = {
    {"threshold", ParameterTypeNames::UInt32, 0xe04ba95df59bbd7cUL, offsetof(sampleType, threshold), 0, 0, 1, 0, 0,
     ParameterMemberKind::Scalar, ParameterStorage::Float, 0, false, false, nullptr},
    {"gains", ParameterTypeNames::Float, 0x958a27b90ed39c44UL, offsetof(sampleType, gains), 0, 0, 3, 0, 0,
     ParameterMemberKind::FixedArray, ParameterStorage::Float, 10, false, false, nullptr},
    {"passes", ParameterTypeNames::Enum, 0xca747d68a81ab0c7UL, offsetof(sampleType, passes), offsetof(sampleType, passesCount), offsetof(sampleType, passesID), 1, 0, 8,
     ParameterMemberKind::CountedArray, ParameterStorage::UInt32, 0, true, false, nullptr},
    {"offset", ParameterTypeNames::Int32, 0xbaf23a58bec735feUL, offsetof(sampleType, offset), offsetof(sampleType, offsetCount), offsetof(sampleType, offsetID), 1, 0, 0,
     ParameterMemberKind::OptionalScalar, ParameterStorage::Int16, 0, false, false, nullptr},
    {"points", ParameterTypeNames::Structure, 0xb37a7c47082000f9UL, offsetof(sampleType, points), offsetof(sampleType, pointsCount), offsetof(sampleType, pointsID), 1, 1, 9,
     ParameterMemberKind::StructureArray, ParameterStorage::UInt32, 0, false, false, &::ispglobalelements::trigger_pt_type::Descriptor},
    {"corners", ParameterTypeNames::Structure, 0xd25bbdbe30ee0574UL, offsetof(sampleType, corners), 0, 0, 2, 0, 0,
     ParameterMemberKind::StructureFixedArray, ParameterStorage::UInt32, 0, false, false, &::ispglobalelements::trigger_pt_type::Descriptor},
    {"label", ParameterTypeNames::String, 0xdda81b3d930fd895UL, offsetof(sampleType, label), offsetof(sampleType, labelCount), offsetof(sampleType, labelID), 1, 0, 10,
     ParameterMemberKind::OptionalString, ParameterStorage::UInt32, 0, false, false, nullptr},
    {"default", ParameterTypeNames::UInt8, 0x9567c48eab4c56cfUL, offsetof(sampleType, default_), 0, 0, 1, 0, 0,
     ParameterMemberKind::Scalar, ParameterStorage::UInt8, 0, false, false, nullptr},
    {"limits", ParameterTypeNames::Structure, 0x8e591c0c483d1e1bUL, offsetof(sampleType, limits), 0, 0, 1, 0, 0,
     ParameterMemberKind::Structure, ParameterStorage::UInt32, 0, false, false, &::ispglobalelements::trigger_pt_type::Descriptor},
    {"unnamed_832c67f0", ParameterTypeNames::Int32, 0x832c67f0d28e401dUL, offsetof(sampleType, unnamed_832c67f0), 0, 0, 1, 0, 0,
     ParameterMemberKind::Scalar, ParameterStorage::Int32, 0, false, false, nullptr},
};

} // namespace

ParameterTypeDescriptor const sampleType::Descriptor = {
    "sampleType", sizeof(sampleType), sizeof(uint32_t), sampleTypeMembers, 10, &sampleType::LoadArray, &sampleType::AllocArray, true};

void sampleType::Load(ParameterLoadParameters& loadParams)
{
    ParameterMemberAccess::Load(this, Descriptor, loadParams);
}

void sampleType::LoadArray(ParameterLoadParameters& loadParams, void* elements,
    unsigned int elementCount)
{
    ParameterMemberAccess::LoadArray(Descriptor, loadParams, elements, elementCount);
}

void* sampleType::AllocArray(unsigned int elementCount)
{
    return ParameterMemberAccess::AllocArray(Descriptor, elementCount);
}

void sampleType::Unload(ParameterFileSymbolTable* symbolTable)
{
    ParameterMemberAccess::Unload(this, Descriptor, symbolTable);
}

bool sampleType::GetValue(char const* valuePath, char* outText, unsigned int outSize)
{
    return ParameterValuePath::GetValue(this, Descriptor, valuePath, outText, outSize);
}

bool sampleType::SetValue(char const* valuePath, char const* valueText)
{
    return ParameterValuePath::SetValue(this, Descriptor, valuePath, valueText);
}

bool sampleType::GetInfo(char const* valuePath, PList<ParameterParserInfo>& infoList)
{
    return ParameterValuePath::GetInfo(this, Descriptor, valuePath, infoList);
}

char const* sampleType::GetModuleName() const
{
    return static_cast<sampleTypeClass const*>(this)->ParameterModule::moduleName;
}

unsigned long sampleType::GetModuleNameHash() const
{
    return static_cast<sampleTypeClass const*>(this)->ParameterModule::moduleNameHash;
}

uint32_t sampleType::GetModified() const
{
    return static_cast<sampleTypeClass const*>(this)->ParameterModule::modified;
}

void sampleType::Release()
{
    static_cast<sampleTypeClass*>(this)->ParameterModule::Release();
}

sampleTypeClass::sampleTypeClass(char const* instanceName) : sampleTypeClass(instanceName, nullptr)
{
}

sampleTypeClass::sampleTypeClass(char const* instanceName, ModuleData* moduleData)
    : ParameterModule(instanceName, 2, 1, 0u, moduleData), sampleType()
{
}

sampleTypeClass::~sampleTypeClass()
{
    if (ParameterModule::loaded)
        UnloadModule();
}

ParameterModule* sampleTypeClass::Make(char const* instanceName, ModuleData* moduleData,
    unsigned int symbolId)
{
    auto* instance = new sampleTypeClass(instanceName, moduleData);
    if (instance != nullptr)
        instance->symbolTableID = symbolId;
    return instance;
}

ParameterModule* sampleTypeClass::Create(ModuleData* moduleData, DefaultModule* registry) const
{
    if (moduleData == nullptr)
        return nullptr;
    if (moduleData->Version.Raw != ParameterModule::version.Raw) {
        ParameterLogging::Write(RecordLogger(moduleData), ParameterLogging::LogError,
            "Unable to create sampleTypeClass, binary version (%lld) does not match source "
            "version (%lld)\n",
            static_cast<long long>(moduleData->Version.Raw),
            static_cast<long long>(ParameterModule::version.Raw));
        return nullptr;
    }
    if (moduleData->NameHash != ParameterModule::moduleNameHash) {
        ParameterLogging::Write(RecordLogger(moduleData), ParameterLogging::LogError,
            "Unable to create sampleTypeClass, binary name hash (0x%016llx) does not match "
            "source name hash (0x%016llx)\n",
            static_cast<unsigned long long>(moduleData->NameHash),
            static_cast<unsigned long long>(ParameterModule::moduleNameHash));
        return nullptr;
    }
    return CreateInstance(moduleData, registry, &Make);
}

bool sampleTypeClass::LoadModule(ParameterFileSymbolTable* symbolTable)
{
    std::lock_guard<std::recursive_mutex> lock(ParameterModule::moduleMutex);
    if (ParameterModule::loaded)
        return true;
    ParameterModuleLoad load(this, symbolTable, symbolTableID & ModuleIdMask, "sampleTypeClass");
    sampleType::Load(load.Parameters());
    return load.Finish();
}

void sampleTypeClass::UnloadModule()
{
    std::lock_guard<std::recursive_mutex> lock(ParameterModule::moduleMutex);
    if (!ParameterModule::loaded)
        return;
    sampleType::Unload(UnloadTable());
    ParameterModule::loaded = false;
}

bool sampleTypeClass::GetValue(char const* valuePath, char* outText, unsigned int outSize)
{
    return sampleType::GetValue(valuePath, outText, outSize);
}

bool sampleTypeClass::SetValue(char const* valuePath, char const* valueText)
{
    if (!sampleType::SetValue(valuePath, valueText))
        return false;
    symbolTableID = NextEditGeneration(symbolTableID);
    ++ParameterModule::modified;
    return true;
}

bool sampleTypeClass::GetInfo(char const* valuePath, PList<ParameterParserInfo>& infoList)
{
    return sampleType::GetInfo(valuePath, infoList);
}

char const* sampleTypeClass::GetModuleName()
{
    return ParameterModule::moduleName;
}

unsigned long sampleTypeClass::GetModuleNameHash()
{
    return ParameterModule::moduleNameHash;
}

} // namespace goldensample
