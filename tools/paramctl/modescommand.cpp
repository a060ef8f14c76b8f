// SPDX-License-Identifier: Apache-2.0
// paramctl modes: the mode tables of a tuning file as trees.
#include <cstdio>
#include <string>
#include <vector>

#include "parameterparser/modeentry.h"
#include "parameterparser/modeslot.h"
#include "parameterparser/parametermodetable.h"
#include "tools/paramctl/commandline.h"
#include "tools/paramctl/commands.h"
#include "tools/paramctl/jsonoutput.h"
#include "tools/paramctl/loadedfile.h"
#include "tools/paramctl/modepath.h"
#include "tools/paramctl/printable.h"

namespace ParamCtl {

namespace {

constexpr char ModesUsage[] =
    "usage: paramctl modes [--json | --dot] FILE\n"
    "\n"
    "Prints every mode table of FILE as a tree of named steps (Usecase.Preview) with each\n"
    "node's Mode ID, the pipelines of its slots, its link and whether it stays resident.\n"
    "--dot writes a Graphviz graph instead (links dashed), --json a document for scripts.\n";

// What the tree shows of one node, gathered from the node and the table's slots.
struct NodeView
{
    ModeEntry* node;
    std::string step;
    std::vector<unsigned int> pipelines;
    long linkId; ///< Mode ID of the linked slot, -1 without a link
};

NodeView ViewOf(ParameterModeTable const& table, unsigned int tableIndex, ModeEntry* node)
{
    NodeView view{node, ModeStepName(*node), {}, -1};
    for (uint32_t i = 0; i < table.m_modeCount; ++i) {
        ModeSlot const& slot = table.modes[i];
        if (slot.mode == node && slot.pipeline != 0)
            view.pipelines.push_back(slot.pipeline);
    }
    if (node->link != nullptr) {
        // Links point at slots of the same table: the slot's index is its Mode ID's low part.
        auto const* slot = reinterpret_cast<ModeSlot const*>(node->link);
        long const index = slot - table.modes;
        if (index >= 0 && static_cast<uint32_t>(index) < table.m_modeCount)
            view.linkId = static_cast<long>((tableIndex << 24) | static_cast<uint32_t>(index));
    }
    return view;
}

std::string Hex(unsigned long value)
{
    char text[24];
    std::snprintf(text, sizeof(text), "0x%08lx", value);
    return text;
}

void PrintNode(ParameterModeTable const& table, unsigned int tableIndex, ModeEntry* node,
               std::string const& prefix, bool last, bool root)
{
    NodeView const view = ViewOf(table, tableIndex, node);
    std::string const branch = root ? "" : (last ? "`- " : "|- ");
    std::string line = prefix + branch + view.step;
    if (line.size() < 40)
        line.resize(40, ' ');
    std::printf("%s id %s", line.c_str(), Hex(node->modeId).c_str());
    if (!view.pipelines.empty()) {
        std::printf("  pipelines");
        for (unsigned int pipeline : view.pipelines)
            std::printf(" %u", pipeline);
    }
    if (view.linkId >= 0)
        std::printf("  link -> %s", Hex(static_cast<unsigned long>(view.linkId)).c_str());
    if (node->resident)
        std::printf("  resident");
    std::printf("\n");
    std::string const childPrefix = root ? prefix : prefix + (last ? "   " : "|  ");
    for (ModeEntry* child = node->firstChild; child != nullptr; child = child->nextSibling)
        PrintNode(table, tableIndex, child, childPrefix, child->nextSibling == nullptr, false);
}

Json JsonNode(ParameterModeTable const& table, unsigned int tableIndex, ModeEntry* node)
{
    NodeView const view = ViewOf(table, tableIndex, node);
    // Copies: the mode fields are packed and cannot be bound to references.
    unsigned int const mode = node->mode.Parts.mode;
    unsigned int const subMode = node->mode.Parts.subMode;
    uint32_t const modeId = node->modeId;
    bool const resident = node->resident;
    Json json = {{"step", view.step}, {"mode", mode},         {"subMode", subMode},
                 {"modeId", modeId},  {"resident", resident}, {"pipelines", view.pipelines}};
    if (view.linkId >= 0)
        json["link"] = view.linkId;
    Json children = Json::array();
    for (ModeEntry* child = node->firstChild; child != nullptr; child = child->nextSibling)
        children.push_back(JsonNode(table, tableIndex, child));
    json["children"] = std::move(children);
    return json;
}

// A table name in a Graphviz label: printable, with its quotes escaped.
std::string DotLabel(std::string const& text)
{
    std::string label;
    for (char c : Printable(text)) {
        if (c == '"')
            label += '\\';
        label += c;
    }
    return label;
}

void DotNode(ParameterModeTable const& table, unsigned int tableIndex, ModeEntry* node)
{
    NodeView const view = ViewOf(table, tableIndex, node);
    std::printf("  n%u_%u [label=\"%s\\n%s\"%s];\n", tableIndex, node->modeId & 0xFFFFFF,
                view.step.c_str(), Hex(node->modeId).c_str(), node->resident ? ", style=bold" : "");
    if (view.linkId >= 0)
        std::printf("  n%u_%u -> n%u_%lu [style=dashed, label=\"link\"];\n", tableIndex,
                    node->modeId & 0xFFFFFF, tableIndex, view.linkId & 0xFFFFFF);
    for (ModeEntry* child = node->firstChild; child != nullptr; child = child->nextSibling) {
        std::printf("  n%u_%u -> n%u_%u;\n", tableIndex, node->modeId & 0xFFFFFF, tableIndex,
                    child->modeId & 0xFFFFFF);
        DotNode(table, tableIndex, child);
    }
}

} // namespace

int RunModes(int argc, char** argv)
{
    CommandLine line({"--json", "--dot"}, {});
    if (!line.Parse(argc, argv)) {
        std::fprintf(stderr, "paramctl modes: %s\n%s", line.Error().c_str(), ModesUsage);
        return ExitUsage;
    }
    if (line.Has("--help")) {
        std::fputs(ModesUsage, stdout);
        return ExitSuccess;
    }
    if (line.Operands().size() != 1 || (line.Has("--json") && line.Has("--dot"))) {
        std::fputs(ModesUsage, stderr);
        return ExitUsage;
    }
    LoadedFile loaded;
    if (!OpenLoadedFile(line.Operands()[0], "modes", loaded))
        return ExitFailure;
    ToolSetManager& manager = loaded.manager;
    unsigned int const count = manager.GetModeTableCount();

    if (line.Has("--json")) {
        Json tables = Json::array();
        for (unsigned int i = 0; i < count; ++i) {
            ParameterModeTable const* table = manager.GetModeTable(i);
            tables.push_back(
                {{"index", i},
                 {"name", Printable(table->name != nullptr ? table->name : "")},
                 {"slots", table->m_modeCount},
                 {"root", table->rootMode != nullptr ? JsonNode(*table, i, table->rootMode)
                                                     : Json::object()}});
        }
        PrintJson({{"tables", std::move(tables)}});
        return LoadedExit(loaded, "modes");
    }
    if (line.Has("--dot"))
        std::printf("digraph modes {\n  node [shape=box, fontname=\"monospace\"];\n");
    for (unsigned int i = 0; i < count; ++i) {
        ParameterModeTable const* table = manager.GetModeTable(i);
        std::string const name =
            table->name != nullptr && table->name[0] != '\0' ? table->name : "(unnamed)";
        if (line.Has("--dot")) {
            std::printf("  subgraph cluster_%u {\n  label=\"table %u: %s\";\n", i, i,
                        DotLabel(name).c_str());
            if (table->rootMode != nullptr)
                DotNode(*table, i, table->rootMode);
            std::printf("  }\n");
            continue;
        }
        std::printf("Mode table %u: %s (%u slots)\n", i, Printable(name).c_str(),
                    table->m_modeCount);
        if (table->rootMode != nullptr)
            PrintNode(*table, i, table->rootMode, "  ", true, true);
    }
    if (line.Has("--dot"))
        std::printf("}\n");
    return LoadedExit(loaded, "modes");
}

} // namespace ParamCtl
