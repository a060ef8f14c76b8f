// SPDX-License-Identifier: Apache-2.0
// The platform's string, file, process and trace helpers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>

namespace Vorn {
namespace OsUtils {

/// Copies at most size - 1 characters of src and terminates; returns strlen(src). Does nothing to
/// dst when size is 0. Null src copies nothing and returns 0.
size_t StrLCpy(char* dst, char const* src, size_t size);

/// Appends src to dst within size bytes in all and terminates; returns the length it tried to
/// make (strlen(dst) + strlen(src)), as strlcat does.
size_t StrLCat(char* dst, char const* src, size_t size);

/// vsnprintf into dst; the result is that of vsnprintf.
int SNPrintF(char* dst, size_t size, char const* format, ...) __attribute__((format(printf, 3, 4)));

/// Compares at most n characters without regard to ASCII case, as strncasecmp does.
int StrNICmp(char const* first, char const* second, size_t n);

/// Reentrant tokenizer (strtok_r): empty pieces between delimiters are skipped.
char* StrTokReentrant(char* text, char const* delimiters, char** context);

/// fopen and fclose; FClose of null returns EOF.
FILE* FOpen(char const* fileName, char const* mode);
int FClose(FILE* file);

uint32_t GetProcessID();
uint32_t GetThreadID();

/// Trace marks around a named span; emitted through the log when the group's bit is set in
/// Vorn::Log::g_traceInfo, otherwise nothing happens.
void TraceBegin(uint32_t group, char const* name);
void TraceEnd(uint32_t group);

} // namespace OsUtils
} // namespace Vorn
