// SPDX-License-Identifier: Apache-2.0
// The paramctl commands: each takes the arguments behind its name and returns an exit code.
#pragma once

#include <string>

namespace ParamCtl {

int RunClient(int argc, char** argv);
int RunConsole(int argc, char** argv);
int RunDiff(int argc, char** argv);
int RunDump(int argc, char** argv);
int RunEntries(int argc, char** argv);
int RunGet(int argc, char** argv);
int RunInfo(int argc, char** argv);
int RunModes(int argc, char** argv);
int RunPack(int argc, char** argv);
int RunSchema(int argc, char** argv);
int RunServe(int argc, char** argv);
int RunSet(int argc, char** argv);
int RunVerify(int argc, char** argv);

/// dump --json without a mode or module: the whole file as one document, indented by two
/// spaces or, compact, on one line.
int DumpDocument(std::string const& path, bool compact);
/// pack --json: the file a document describes.
int PackDocument(std::string const& input, std::string const& output);

} // namespace ParamCtl
