// SPDX-License-Identifier: Apache-2.0
// One step of a mode branch: ModeUnion as files store it, TuningMode as callers give it.
#pragma once

#include <cstdint>

#include "parameterparser/parameterexport.h"

/// The file's form of a mode step: mode (u16), subMode (u16), pipeline (u32), also one 64-bit
/// raw value. The two-part constructor leaves pipeline alone, so use it on zeroed storage.
union PARAMETERPARSER_API ModeUnion
{
    struct
    {
        uint16_t mode;
        uint16_t subMode;
        uint32_t pipeline;
    } Parts;
    unsigned long Raw;

    ModeUnion() : Raw(0) {}
    explicit ModeUnion(unsigned long raw) : Raw(raw) {}
    // Deliberately writes only the first two fields: pipeline keeps what the storage held.
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init)
    ModeUnion(unsigned short mode, unsigned short subMode)
    {
        Parts.mode = mode;
        Parts.subMode = subMode;
    }
};

static_assert(sizeof(ModeUnion) == 8, "ModeUnion is read from files as 8 bytes");

/// Mode values of a branch step; step 0 of a branch is Default.
enum TuningModeValue : uint32_t
{
    ModeDefault = 0,
    ModeSensor = 1,
    ModeUsecase = 2,
    ModeFeature1 = 3,
    ModeFeature2 = 4,
    ModeScene = 5,
    ModeEffect = 6,
};

/// A caller's mode step: mode (u32), subMode (u16), then 16 bits of zero.
struct PARAMETERPARSER_API TuningMode
{
    uint32_t mode;
    uint16_t subMode;
    uint16_t reserved;
};

static_assert(sizeof(TuningMode) == 8, "TuningMode is 8 bytes");

/// A client's pipeline value. A mode step that belongs to a pipeline stores this value plus one in
/// its pipeline field (0 there means no pipeline), which is how module lists are filtered by it.
using PipelineType = uint32_t;
