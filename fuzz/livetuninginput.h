// SPDX-License-Identifier: Apache-2.0
// The input of the live tuning fuzz target, shared by the target and its seed writer: the bytes a
// client sends, behind a seed that decides where the stream is cut into receives.
//
// | Bytes | Field                                                                  |
// |-------|------------------------------------------------------------------------|
// | 2     | split seed (u16, little-endian): receive sizes and client drop-outs     |
// | rest  | the byte stream, any number of packets, whole or not                   |
#pragma once

#include <cstdint>

namespace LiveTuningFuzz {

constexpr unsigned int FrameSize = 2;

/// The server's view of the tuning file that the target serves and the seeds ask about.
constexpr char const* PreviewModes = "Default|Sensor.0|Usecase.Preview";

/// The next receive size (1 to 97 bytes) or, about one receive in 29, -1 for a client that went
/// away, from a small generator over state.
inline int NextCut(uint32_t& state)
{
    state ^= state << 13;
    state ^= state >> 17;
    state ^= state << 5;
    if (state % 29 == 0)
        return -1;
    return static_cast<int>(1 + state % 97);
}

} // namespace LiveTuningFuzz
