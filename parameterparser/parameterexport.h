// SPDX-License-Identifier: Apache-2.0
// Marks the classes and functions that the shared library exports.
#pragma once

#define PARAMETERPARSER_API __attribute__((visibility("default")))
