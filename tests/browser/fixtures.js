// The tuning files the browser tests open, made with paramctl itself: the bundled sample, a file
// tuned from it for the diff, gamma curves of both trigger generations, and a large file for the
// timings.
"use strict";

const fs = require("fs");
const path = require("path");
const {run} = require("./harness");

const Preview = "Default|Sensor.0|Usecase.Preview";

async function paramctl(tool, args) {
    const result = await run(tool, args, 300000);
    if (result.code !== 0)
        throw new Error(`paramctl ${args.join(" ")} failed (${result.code}): ${result.stderr}`);
    return result.stdout;
}

// A gamma curve of 65 codes to 1023 for the given exponent.
function gammaCurve(exponent) {
    return Array.from({length: 65}, (_, index) => Math.round(1023 * Math.pow(index / 64, 1 / exponent)));
}

function gammaRegion(exponent) {
    return {channel_r_tab: {channel_r: gammaCurve(exponent)},
            channel_g_tab: {channel_g: gammaCurve(exponent * 1.05)},
            channel_b_tab: {channel_b: gammaCurve(exponent * 0.95)}};
}

// A generation-1 tree: DRC gain ranges outside, exposure ranges inside, a region at each leaf.
function gammaTree(gainRanges, exposureRanges) {
    return gainRanges.map(([start, end], outer) => ({
        start, end, region: [],
        trigger: exposureRanges.map(([low, high], inner) => ({
            start: low, end: high, trigger: [], region: [gammaRegion(1.8 + 0.2 * ((outer + inner) % 3))],
        })),
    }));
}

// A generation-0 nest from the DRC gain outside to the colour channel inside.
function gammaNest() {
    const channels = [0, 1, 2].map((channel) => ({channel_type: channel,
                                                   gamma16_rgn_data: {table: gammaCurve(2.2)}}));
    const cct = [[2800, 4500], [4500, 7500]].map(([start, end]) => ({
        cct_trigger: {start, end}, cct_data: {mod_gamma16_channel_data: channels}}));
    const aec = [{aec_trigger: {lux_idx_start: 0, lux_idx_end: 250, gain_start: 1, gain_end: 8},
                  aec_data: {mod_gamma16_cct_data: cct}},
                 {aec_trigger: {lux_idx_start: 250, lux_idx_end: 500, gain_start: 8, gain_end: 64},
                  aec_data: {mod_gamma16_cct_data: cct}}];
    const led = [{led_idx_trigger: 0, led_idx_data: {mod_gamma16_aec_data: aec}}];
    const hdr = [{hdr_aec_trigger: {exp_time_start: 0, exp_time_end: 1, aec_sensitivity_start: 0,
                                    aec_sensitivity_end: 1, exp_gain_start: 1, exp_gain_end: 16},
                  hdr_aec_data: {mod_gamma16_led_idx_data: led}}];
    return [{drc_gain_trigger: {start: 1, end: 4}, drc_gain_data: {mod_gamma16_hdr_aec_data: hdr}}];
}

/// Writes the files into work and answers their paths.
async function makeFiles(tool, sourceDir, work) {
    fs.mkdirSync(work, {recursive: true});
    const file = (name) => path.join(work, name);
    await paramctl(tool, ["pack", path.join(sourceDir, "examples/sample.tuning"), "-o", file("sample.bin")]);
    await paramctl(tool, ["set", "-o", file("tuned.bin"), file("sample.bin"), Preview, "t2tconfigdata",
                          "confidenceThreshold=99", "downscaleRatio=0.5"]);

    await paramctl(tool, ["pack", path.join(__dirname, "gamma.tuning"), "-o", file("gamma-empty.bin")]);
    const document = JSON.parse(await paramctl(tool, ["dump", "--json", file("gamma-empty.bin")]));
    for (const symbol of document.symbols) {
        if (symbol.name === "gamma16_bps_v2") {
            symbol.values.control_variables.control_var_type = [3, 1];
            symbol.values.varitonal_gamma16_core.mod_gamma16_trigger_data =
                gammaTree([[1, 4], [4, 16]], [[0, 200], [200, 450], [450, 600]]);
        } else if (symbol.name === "gamma16_bps") {
            symbol.values.varitonal_gamma16_core.mod_gamma16_drc_gain_data = gammaNest();
        }
    }
    fs.writeFileSync(file("gamma.json"), JSON.stringify(document));
    await paramctl(tool, ["pack", "--json", file("gamma.json"), "-o", file("gamma.bin")]);
    return {sample: file("sample.bin"), tuned: file("tuned.bin"), gamma: file("gamma.bin"),
            file};
}

/// A file of about 16 MB: the sample's tracker in every mode of 16 sensors and a large gamma
/// tree beside it. Made once per work folder.
async function makeLargeFile(tool, work) {
    const target = path.join(work, "large.bin");
    if (fs.existsSync(target))
        return target;
    const lines = ["version 7.0.0", "binary-tag console-large", "modetable rear"];
    const modes = [];
    for (let sensor = 0; sensor < 16; ++sensor) {
        for (const usecase of ["Preview", "Snapshot", "Video"])
            modes.push(`Default|Sensor.${sensor}|Usecase.${usecase}`);
    }
    lines.push(...modes.map((mode) => `  path ${mode}`));
    for (const mode of ["Default", ...modes]) {
        lines.push(`instance t2tconfigdata T2TCtrlType mode ${mode}`,
                   `  value confidenceThreshold ${modes.indexOf(mode) + 2}`,
                   `instance gamma16_bps_v2 varitonal_gamma16Type mode ${mode}`);
    }
    fs.writeFileSync(path.join(work, "large.tuning"), lines.join("\n") + "\n");
    await paramctl(tool, ["pack", path.join(work, "large.tuning"), "-o", path.join(work, "large-empty.bin")]);
    const document = JSON.parse(await paramctl(tool, ["dump", "--json", path.join(work, "large-empty.bin")]));
    const ranges = Array.from({length: 20}, (_, index) => [index * 30, index * 30 + 30]);
    for (const symbol of document.symbols) {
        if (symbol.name === "gamma16_bps_v2") {
            symbol.values.control_variables.control_var_type = [3, 1];
            symbol.values.varitonal_gamma16_core.mod_gamma16_trigger_data = gammaTree(ranges, ranges);
        }
    }
    fs.writeFileSync(path.join(work, "large.json"), JSON.stringify(document));
    await paramctl(tool, ["pack", "--json", path.join(work, "large.json"), "-o", target]);
    return target;
}

module.exports = {makeFiles, makeLargeFile, paramctl, Preview};
