// SPDX-License-Identifier: Apache-2.0
// paramctl dump --json and pack --json: a whole tuning file as one JSON document and back.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iomanip>
#include <iostream>
#include <string>
#include <vector>

#include "tools/paramctl/commandline.h"
#include "tools/paramctl/commands.h"
#include "tools/paramctl/document/tuningdocument.h"
#include "tools/paramctl/inputfile.h"
#include "tools/paramctl/printable.h"

namespace ParamCtl {

int DumpDocument(std::string const& path, bool compact)
{
    std::vector<unsigned char> bytes;
    std::string reason;
    if (!ReadInputFile(path, bytes, reason)) {
        std::fprintf(stderr, "paramctl dump: %s: %s\n", Printable(path).c_str(), reason.c_str());
        return ExitFailure;
    }
    Json document;
    if (!ReadTuningDocument(bytes, document, reason)) {
        std::fprintf(stderr, "paramctl dump: %s: %s\n", Printable(path).c_str(),
                     Printable(reason).c_str());
        return ExitFailure;
    }
    // Written as it is serialised: a large file's document is never held twice as text.
    std::cout << std::setw(compact ? 0 : 2) << document << '\n';
    std::cout.flush();
    size_t const problems = document["problems"].size();
    if (problems == 0)
        return ExitSuccess;
    std::fprintf(stderr, "paramctl dump: %s: %zu problem%s, listed in \"problems\"\n",
                 Printable(path).c_str(), problems, problems == 1 ? "" : "s");
    return ExitFailure;
}

int PackDocument(std::string const& input, std::string const& output)
{
    std::vector<unsigned char> text;
    std::string reason;
    if (!ReadInputFile(input, text, reason)) {
        std::fprintf(stderr, "paramctl pack: %s: %s\n", Printable(input).c_str(), reason.c_str());
        return ExitFailure;
    }
    Json const document = Json::parse(text.begin(), text.end(), nullptr, false);
    if (document.is_discarded()) {
        std::fprintf(stderr, "paramctl pack: %s: not a JSON document\n", Printable(input).c_str());
        return ExitFailure;
    }
    std::vector<uint8_t> bytes;
    if (!PackTuningDocument(document, bytes, reason)) {
        std::fprintf(stderr, "paramctl pack: %s: %s\n", Printable(input).c_str(),
                     Printable(reason).c_str());
        return ExitFailure;
    }
    FILE* stream = std::fopen(output.c_str(), "wb");
    bool written =
        stream != nullptr && std::fwrite(bytes.data(), 1, bytes.size(), stream) == bytes.size();
    int const writeErrno = errno;
    if (stream != nullptr)
        written = std::fclose(stream) == 0 && written;
    if (!written) {
        std::fprintf(stderr, "paramctl pack: cannot write %s: %s\n", Printable(output).c_str(),
                     std::strerror(writeErrno != 0 ? writeErrno : errno));
        return ExitFailure;
    }
    return ExitSuccess;
}

} // namespace ParamCtl
