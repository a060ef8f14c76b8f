// SPDX-License-Identifier: Apache-2.0
// The platform's string, file, process and trace helpers on POSIX.
#include "platform/vornosutils.h"

#include <cstdarg>
#include <cstring>

#include <strings.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "platform/vornlog.h"

namespace Vorn {
namespace OsUtils {

size_t StrLCpy(char* dst, char const* src, size_t size)
{
    if (src == nullptr) {
        if (dst != nullptr && size > 0)
            dst[0] = '\0';
        return 0;
    }
    size_t length = std::strlen(src);
    if (dst != nullptr && size > 0) {
        size_t copied = length < size - 1 ? length : size - 1;
        std::memmove(dst, src, copied);
        dst[copied] = '\0';
    }
    return length;
}

size_t StrLCat(char* dst, char const* src, size_t size)
{
    size_t used = dst != nullptr ? strnlen(dst, size) : 0;
    if (used == size)
        return size + (src != nullptr ? std::strlen(src) : 0);
    return used + StrLCpy(dst + used, src, size - used);
}

int SNPrintF(char* dst, size_t size, char const* format, ...)
{
    va_list args;
    va_start(args, format);
    int result = std::vsnprintf(dst, size, format, args);
    va_end(args);
    return result;
}

int StrNICmp(char const* first, char const* second, size_t n)
{
    return strncasecmp(first, second, n);
}

char* StrTokReentrant(char* text, char const* delimiters, char** context)
{
    return strtok_r(text, delimiters, context);
}

FILE* FOpen(char const* fileName, char const* mode)
{
    return std::fopen(fileName, mode);
}

int FClose(FILE* file)
{
    return file != nullptr ? std::fclose(file) : EOF;
}

uint32_t GetProcessID()
{
    return static_cast<uint32_t>(getpid());
}

uint32_t GetThreadID()
{
    return static_cast<uint32_t>(syscall(SYS_gettid));
}

void TraceBegin(uint32_t group, char const* name)
{
    if ((Log::g_traceInfo.groupMask & group) != 0)
        Log::LogSystem(group, 'T', Log::LevelVerbose, "B|%u|%s\n", GetProcessID(),
                       name != nullptr ? name : "");
}

void TraceEnd(uint32_t group)
{
    if ((Log::g_traceInfo.groupMask & group) != 0)
        Log::LogSystem(group, 'T', Log::LevelVerbose, "E|%u\n", GetProcessID());
}

} // namespace OsUtils
} // namespace Vorn
