// SPDX-License-Identifier: Apache-2.0
// ParameterFileLoader: reads a tuning file's header, sections and mode sections into a manager.
#pragma once

#include "parameterparser/parameterfilelayout.h"

class IModeTable;
class ModeEntry;
class ParameterBinaryFile;
class ParameterModeTable;
class ParameterSetManager;
struct ParameterSectionTable;

/// The loading of a file into a main manager: the header and the section table go into the
/// manager's descriptors, the mode sections into its mode tables, then the symbol table and the
/// modules are made. The manager's member forms of these steps delegate here; each keeps
/// its failure's text as the manager's error and its result as the load status.
class ParameterFileLoader
{
public:
    explicit ParameterFileLoader(ParameterSetManager& manager) : m_manager(manager) {}

    ParameterFileLoader(ParameterFileLoader const&) = delete;
    ParameterFileLoader& operator=(ParameterFileLoader const&) = delete;

    /// The load from a whole file in buffer: the header, then the sections. The result is the
    /// load status; a success starts the live tuning service.
    [[nodiscard]] bool LoadFromBuffer(unsigned char* buffer, unsigned long length);
    /// The load by name: in file mode the header is checked over the whole file and the sections
    /// are read from its first window; otherwise the image is loaded as a buffer.
    [[nodiscard]] bool LoadFromFile(char const* fileName);

    /// Reads the header of a whole file in buffer into the manager; on success the logging
    /// identifier takes the tag. position receives the end of the header.
    [[nodiscard]] bool ReadHeader(unsigned char* buffer, unsigned int length,
                                  unsigned int& position, unsigned int& sectionTableOffset,
                                  unsigned char& alignment);

    /// Reads the section table at position into the manager's section descriptors, which are
    /// cleared first.
    [[nodiscard]] bool ReadSectionInfo(unsigned char* buffer, unsigned int length,
                                       unsigned int& position, unsigned char alignment);

    /// The section table, the mode sections, then the symbol and data tables and the modules.
    [[nodiscard]] bool ReadSections(unsigned char* buffer, unsigned int length,
                                    char const* fileName, ParameterBinaryFile* file,
                                    unsigned int fileSize, unsigned int sectionTableOffset,
                                    IModeTable* modeTable, unsigned char alignment);

    /// Every mode section into a new table; a file without mode sections gets one unnamed table
    /// with a Default root. True when the last section that made a table was read cleanly.
    [[nodiscard]] bool ReadModeSections(unsigned char* buffer, unsigned int length,
                                        ParameterBinaryFile* file, unsigned char alignment);

private:
    /// The sections of a file-mode load, from the window at the start of file.
    void ReadFileSections(ParameterBinaryFile* file, unsigned int fileSize,
                          unsigned int sectionTableOffset, unsigned char alignment);
    /// Ends the load's hold on the file object of a load by name: a symbol table that took the
    /// file over keeps it, closed; otherwise the object is destroyed.
    void ReleaseFile(ParameterBinaryFile* file);
    bool LoadSectionContents(unsigned char* buffer, unsigned int length, char const* fileName,
                             ParameterBinaryFile* file, unsigned int fileSize,
                             IModeTable* modeTable);
    /// Makes and places the module of every record of the symbol table; false when one of them
    /// could not be made or placed.
    bool CreateModules(bool fileMode);
    /// Reads one mode section into a new table. result is set true once the table exists and
    /// false when one of its entries is refused; false when no table was made.
    bool ReadModeSection(unsigned int section, unsigned char* buffer, unsigned int length,
                         ParameterBinaryFile* file, ParameterFileLayout const& layout,
                         bool& result);

    ParameterSetManager& m_manager;
};
