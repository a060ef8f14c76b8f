// SPDX-License-Identifier: Apache-2.0
// The input of the path fuzz target and the manager it runs against, shared by the target and its
// seed writer. An input is up to four fields, one a line:
//
// | Field | Holds                                                          |
// |-------|----------------------------------------------------------------|
// | 0     | a mode path, numeric ("0.0|1.0|2.0") or named ("Default|...")  |
// | 1     | a variable: an instance name, then a value path in its module  |
// | 2     | sub-variables (none when empty)                                |
// | 3     | a value text                                                   |
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/writer/tuningdescription.h"

#include "paramgen/TuningSetManager.h"
#include "paramgen/TuningSetManager.writer.h"

namespace PathsFuzz {

constexpr char FieldSeparator = '\n';
constexpr unsigned int FieldCount = 4;

/// A mode tree of several depths and branches, and modules of scalars, numbers held as floats,
/// counted arrays, nested structures and strings, given at the root and in some branches.
constexpr char Description[] = R"(
version 7.0.0
modetable rear
  path Default|Sensor.0|Usecase.Preview
  path Default|Sensor.0|Usecase.Preview|Feature1.ISPHDR
  path Default|Sensor.0|Usecase.Snapshot
  path Default|Sensor.0|Usecase.Video resident
  path Default|Sensor.1|Usecase.Preview
  path Default|Sensor.1|Usecase.Snapshot|Scene.Night
instance t2tconfigdata T2TCtrlType mode Default
  value module_version.major_revision 1
  value operationMode 1
  value downscaleRatio 0.5
  value confidenceThreshold 60
instance t2tconfigdata T2TCtrlType mode Default|Sensor.0|Usecase.Preview
  value operationMode 2
  value downscaleRatio 0.25
  value confidenceThreshold 75
instance varitonalTOF varitonalTOFType mode Default|Sensor.0
  value SceneChange.panning_stable_cnt 4
  value SceneChange.scene_change_distance_thres 10,20,30,40
  value SceneChange.distance_region 100,200,400,800,1600
instance varitonalTrackerROIMixer varitonalTrackerROIMixerType mode Default
  value parameter_version.revision mixer-a
  value enable 1
  value GazeFocus.YawThresholdLow -15
instance versionsA_sw varitonal_versionsA10Type mode Default|Sensor.1
  value parameter_version.revision rear-1
  value varitonal_versionsA10_reserve.xsd_version 7.4.1
)";

/// The instances the description fills, for the seed writer.
constexpr char const* Instances[] = {"t2tconfigdata", "varitonalTOF", "varitonalTrackerROIMixer",
                                     "versionsA_sw"};

/// The description's file loaded in buffer mode into a tuning manager without live tuning.
class LoadedManager final : public TuningSetManager
{
public:
    LoadedManager() : TuningSetManager("paths-fuzz")
    {
        m_knobbyEnabled = false;
        TuningWriter::TuningDescription description({&ParamSchema::TuningSetManager::Instances()});
        if (!description.Parse(Description))
            return;
        m_bytes = description.MakeWriter().Build();
        m_loaded = LoadBinaryParameters(m_bytes.data(), m_bytes.size());
    }

    bool Loaded() const { return m_loaded; }

private:
    std::vector<uint8_t> m_bytes;
    bool m_loaded = false;
};

/// The fields of an input; missing ones are empty.
inline std::vector<std::string> SplitFields(uint8_t const* data, size_t size)
{
    std::vector<std::string> fields(1);
    for (size_t i = 0; i < size; ++i) {
        if (data[i] == FieldSeparator && fields.size() < FieldCount)
            fields.emplace_back();
        else
            fields.back().push_back(static_cast<char>(data[i]));
    }
    fields.resize(FieldCount);
    return fields;
}

} // namespace PathsFuzz
