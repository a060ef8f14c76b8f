// SPDX-License-Identifier: Apache-2.0
// Writes the seed corpus of the settings fuzz target: override settings files with every kind of
// value and line the reader tells apart. The first line of each is the one the target also
// reads back, so the first lines cover the number forms.
#include <string>

#include "fuzz/seedwriter.h"

namespace {

// One value of each kind and spelling after a first line of its own.
constexpr char Body[] = "# tuning overrides\n"
                        "; a comment of the other kind\n"
                        "gain=1.5\n"
                        "ratio = 0.25\n"
                        "offset=-12\n"
                        "mask=0x1F\n"
                        "octal=010\n"
                        "large=1e10\n"
                        "enable=true\n"
                        "disable=FALSE\n"
                        "Mixed=True\n"
                        "name=rear camera\n"
                        "GAIN=2\n"
                        "a==5\n"
                        "=5\n"
                        "novalue=\n"
                        "crlf=7\r\n";

constexpr char const* FirstLines[] = {
    "42",  "-7",         "0",           "3.25", "-0.5", "1e3",    "1.000000005e1", "0x10",
    "010", "2147483648", "-2147483649", "inf",  "nan",  "true",   "FALSE",         "text",
    "1,5", "0x1p-3",     "4294967295",  ".5",   "5.",   "1e-320", "-1e308",        "+9",
};

bool WriteAll(std::string const& folder)
{
    unsigned int number = 0;
    for (char const* first : FirstLines) {
        if (!FuzzSeeds::Write(folder, "seed-" + std::to_string(number++) + ".txt",
                              std::string(first) + "\n" + Body))
            return false;
    }
    // A string longer than the store keeps, and a line longer than the reader's buffer, which
    // is read in pieces.
    std::string const longText(80, 's');
    std::string const longLine = "long=" + std::string(300, '7') + "=x\n";
    return FuzzSeeds::Write(folder, "seed-long.txt",
                            longText + "\nkey=" + longText + "\n" + longLine);
}

} // namespace

int main(int argc, char** argv)
{
    return FuzzSeeds::Main(argc, argv, WriteAll);
}
