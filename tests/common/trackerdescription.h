// SPDX-License-Identifier: Apache-2.0
// A small tuning file described as text: the tracker's tuning at the root and its own in sensor
// 0's preview, so that video reads the root's. Live tuning tests and benchmarks serve it;
// the value access tests read it.
#pragma once

namespace ParamTest {

constexpr char TrackerDescription[] = R"(
version 7.0.0
binary-tag live-tuning-test
modetable rear
  path Default|Sensor.0|Usecase.Preview
  path Default|Sensor.0|Usecase.Video
instance t2tconfigdata T2TCtrlType mode Default
  value module_version.major_revision  1
  value operationMode                  1
  value precisionMode                  0
  value downscaleRatio                 0.5
  value cancelObjectUponMissing        1
  value confidenceThreshold            60
instance t2tconfigdata T2TCtrlType mode Default|Sensor.0|Usecase.Preview
  value module_version.major_revision  1
  value operationMode                  2
  value precisionMode                  1
  value downscaleRatio                 0.25
  value cancelObjectUponMissing        0
  value confidenceThreshold            75
)";

} // namespace ParamTest
