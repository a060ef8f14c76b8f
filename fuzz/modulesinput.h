// SPDX-License-Identifier: Apache-2.0
// The input of the generated-module fuzz target: a tuning file's symbol, data table, data and
// definition sections behind a small frame, shared by the target and its seed writer.
//
// | Bytes | Field                                               |
// |-------|-----------------------------------------------------|
// | 1     | bit 0: version 7.0.0 (else 6.0.0); bit 1: keep defs  |
// | 4     | definition section size (u32, little-endian)        |
// | 4     | symbol section size                                 |
// | 4     | data table section size                             |
// | rest  | the sections in that order, then the data section   |
#pragma once

#include <cstdint>

namespace ModulesFuzz {

constexpr unsigned int FrameSize = 13;
constexpr uint8_t Version7 = 0x1;
constexpr uint8_t KeepDefinitions = 0x2;

/// The instances the target creates for every symbol entry, by name and module version.
constexpr char const* GammaInstance = "gamma16_v2";
constexpr char const* MixerInstance = "trackerROIMixer";

} // namespace ModulesFuzz
