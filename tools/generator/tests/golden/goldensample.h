// Generated from tools/generator/tests/golden/goldensample.schema by the module generator. Do not edit.
#pragma once

#include <cstdint>

#include "parameterparser/parametermemberaccess.h"
#include "parameterparser/parametermodule.h"
#include "parameterparser/parameterparserinfo.h"
#include "parameterparser/plist.h"
#include "paramgen/ispglobalelements.h"

class DefaultModule;
class ModuleData;
class ParameterFileSymbolTable;
struct ParameterLoadParameters;

static_assert(ParameterModuleLayoutVersion == 1,
              "generated for another module framework layout");

namespace goldensample {

enum pass_kind : unsigned int
{
    pass_full = 0u,
    pass_dc4 = 4u,
};

struct PARAMETERPARSER_API sampleType
{
    uint32_t symbolTableID; ///< bits 0-23 symbol table ID, 24-31 edits
    float threshold;
    float gains[3];
    uint32_t passesCount;
    uint32_t passesID;
    ::goldensample::pass_kind* passes;
    int16_t offset;
    uint32_t offsetCount;
    uint32_t offsetID;
    uint32_t pointsCount;
    uint32_t pointsID;
    ::ispglobalelements::trigger_pt_type* points;
    ::ispglobalelements::trigger_pt_type corners[2];
    char* label;
    uint32_t labelCount;
    uint32_t labelID;
    uint8_t default_;
    ::ispglobalelements::trigger_pt_type limits;
    int32_t unnamed_832c67f0;

    void Load(ParameterLoadParameters& loadParams);
    static void LoadArray(ParameterLoadParameters& loadParams, void* elements, unsigned int elementCount);
    static void* AllocArray(unsigned int elementCount);
    void Unload(ParameterFileSymbolTable* symbolTable);
    bool GetValue(char const* valuePath, char* outText, unsigned int outSize);
    bool SetValue(char const* valuePath, char const* valueText);
    bool GetInfo(char const* valuePath, PList<ParameterParserInfo>& infoList);
    char const* GetModuleName() const;
    unsigned long GetModuleNameHash() const;
    uint32_t GetModified() const;
    void Release();

    static ParameterTypeDescriptor const Descriptor;
};

class PARAMETERPARSER_API sampleTypeClass final : public ParameterModule, public sampleType
{
public:
    /// The factory instance of a set manager's registry: no data.
    explicit sampleTypeClass(char const* instanceName);
    /// An instance for the module record data.
    sampleTypeClass(char const* instanceName, ModuleData* moduleData);
    ~sampleTypeClass() override;

    ParameterModule* Create(ModuleData* moduleData, DefaultModule* registry) const override;
    bool LoadModule(ParameterFileSymbolTable* symbolTable) override;
    void UnloadModule() override;
    bool GetValue(char const* valuePath, char* outText, unsigned int outSize) override;
    bool SetValue(char const* valuePath, char const* valueText) override;
    bool GetInfo(char const* valuePath, PList<ParameterParserInfo>& infoList) override;
    virtual char const* GetModuleName();
    virtual unsigned long GetModuleNameHash();
    void Release() { ParameterModule::Release(); }

private:
    static ParameterModule* Make(char const* instanceName, ModuleData* moduleData, unsigned int symbolId);
};

} // namespace goldensample
