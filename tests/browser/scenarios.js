// The console's scenarios, each against its own paramctl console (and live tuning server), as
// a tuning engineer would go through them in the browser.
"use strict";

const assert = require("assert/strict");
const fs = require("fs");
const path = require("path");
const {startServer, stopServer, freePort, openPage, run} = require("./harness");
const {paramctl, Preview} = require("./fixtures");
const screenshots = require("./screenshots");

const ListeningLine = /paramctl console: listening on (http:\/\/127\.0\.0\.1:\d+\/)/;
const Deepest = `${Preview}|Feature1.ISPHDR`;

/// Everything a scenario needs: the tool, the files, the browser, where pictures are kept.
class Session {
    constructor(options) {
        Object.assign(this, options);
        this.servers = [];
        this.pages = [];
    }

    // paramctl console with FILE arguments relative to the work folder, so the page shows the
    // same names wherever the tests run.
    async console(args) {
        const server = await startServer(this.tool, ["console", "--port", "0", ...args], ListeningLine,
                                         30000, this.work);
        this.servers.push(server);
        return server.match[1];
    }

    async serve(file) {
        const port = await freePort();
        const server = await startServer(this.tool, ["serve", "--bind", "127.0.0.1", "--port", String(port),
                                                     file], /listening on port \d+/, 30000, this.work);
        this.servers.push(server);
        return `127.0.0.1:${port}`;
    }

    async open(url) {
        const page = await openPage(this.browser);
        this.pages.push(page);
        await page.goto(url, {waitUntil: "load"});
        await page.waitForSelector("body[data-ready='true']");
        return page;
    }

    async end() {
        for (const page of this.pages)
            await page.close().catch(() => {});
        await Promise.all(this.servers.map(stopServer));
    }

    async paramctl(args) {
        return paramctl(this.tool, args);
    }

    // Holds a screenshot of the element against tests/browser/pictures/NAME.png.
    async picture(page, selector, name) {
        const shot = await (await page.$(selector)).screenshot({type: "png"});
        const problem = screenshots.compare(path.join(__dirname, "pictures", `${name}.png`), shot,
                                         this.updatePictures);
        assert.equal(problem, null, problem);
    }
}

// The page marks the branch and module it shows once everything of them is drawn.
async function chooseBranch(page, branch) {
    await page.click(`button.mode[data-path="${branch}"]`);
    await page.waitForFunction((wanted) => (document.body.dataset.shown || "").startsWith(`${wanted}:`),
                               {}, branch);
}

async function chooseModule(page, instance) {
    await page.click(`button.module[data-instance="${instance}"]`);
    await page.waitForFunction((wanted) => (document.body.dataset.shown || "").endsWith(`:${wanted}`),
                               {}, instance);
}

// The value row of a member: its input's text and the mode it says supplies it.
function valueRow(page, valuePath) {
    return page.$eval(`li.value[data-path="${valuePath}"]`, (row) => ({
        value: row.querySelector("input").value,
        source: row.querySelector(".source").textContent,
    }));
}

// Types text into a value's input and waits for the page to report the outcome.
async function edit(page, inputLabel, text) {
    const selector = `input[aria-label="${inputLabel}"]`;
    await page.click(selector, {clickCount: 3});
    await page.keyboard.type(text);
    await page.evaluate(() => (document.getElementById("status").textContent = ""));
    await page.keyboard.press("Enter");
    await page.waitForFunction(() => document.getElementById("status").textContent !== "");
    return page.$eval("#status", (line) => ({text: line.textContent, failed: line.classList.contains("failed")}));
}

async function save(page) {
    await page.evaluate(() => (document.getElementById("status").textContent = ""));
    await page.click("#save");
    await page.waitForFunction(() => document.getElementById("status").textContent !== "");
    return page.$eval("#status", (line) => line.textContent);
}

function noProblems(page, expected = []) {
    const unexpected = page.problems.filter((problem) => !expected.some((pattern) => pattern.test(problem)));
    assert.deepEqual(unexpected, [], "the page reported problems");
}

// A value read back from a file with paramctl get, by its value path in the module.
async function fileValue(session, file, branch, instance, valuePath) {
    const output = await session.paramctl(["get", path.join(session.work, file), branch, instance]);
    const line = output.split("\n").find((text) => text.startsWith(`${valuePath}=`));
    assert.ok(line, `no ${valuePath} in:\n${output}`);
    return line.slice(valuePath.length + 1);
}

const scenarios = {
    // The mode tree, a walk to the deepest mode, a value and the mode that supplies it.
    async modes(session) {
        const page = await session.open(await session.console(["sample.bin", "--compare", "tuned.bin"]));
        const steps = await page.$$eval("button.mode", (buttons) => buttons.map((button) => button.dataset.path));
        assert.ok(steps.includes(Deepest), `no ${Deepest} in ${steps}`);
        await chooseBranch(page, Deepest);
        const modules = await page.$$eval("button.module", (buttons) =>
            buttons.map((button) => button.textContent));
        assert.ok(modules.includes(`t2tconfigdata from ${Preview}`), modules.join("; "));
        assert.ok(modules.includes("versionsA_sw from Default"), modules.join("; "));
        await chooseModule(page, "t2tconfigdata");
        assert.deepEqual(await valueRow(page, "confidenceThreshold"),
                         {value: "75", source: `from ${Preview}`});
        // A mode above the preview reads the tracker of Default.
        await chooseBranch(page, "Default|Sensor.1");
        assert.deepEqual(await valueRow(page, "confidenceThreshold"), {value: "60", source: "from Default"});
        await chooseBranch(page, Deepest);
        await session.picture(page, "main", "values");
        if (session.updatePictures) {
            const main = await (await page.$("main")).boundingBox();
            await page.screenshot({path: path.join(session.sourceDir, "docs/console.png"),
                                   clip: {x: 0, y: 0, width: 1200, height: Math.ceil(main.y + main.height)}});
        }
        noProblems(page);
    },

    // An edit in a file session: a refused one changes nothing and shows the reason; an accepted
    // one is saved and read back from the saved file.
    async editFile(session) {
        const page = await session.open(await session.console(["sample.bin", "--save-to", "edited.bin"]));
        await chooseBranch(page, Preview);
        await chooseModule(page, "t2tconfigdata");
        const refused = await edit(page, "confidenceThreshold", "many");
        assert.ok(refused.failed, refused.text);
        const reason = await page.$eval(`li.value[data-path="confidenceThreshold"] .error`,
                                        (box) => box.textContent);
        assert.match(reason, /^confidenceThreshold: \S/);
        assert.equal((await valueRow(page, "confidenceThreshold")).value, "75");
        const accepted = await edit(page, "confidenceThreshold", "42");
        assert.ok(!accepted.failed, accepted.text);
        assert.equal((await valueRow(page, "confidenceThreshold")).value, "42");
        assert.match(await save(page), /^saved to edited\.bin/);
        assert.equal(await fileValue(session, "edited.bin", Preview, "t2tconfigdata", "confidenceThreshold"),
                     "42");
        noProblems(page, [/status of 400/]);
    },

    // An edit in a live session reaches every other client of the live tuning server.
    async editLive(session) {
        const live = await session.serve("sample.bin");
        const page = await session.open(await session.console(["--live", live, "sample.bin"]));
        await chooseBranch(page, Preview);
        await chooseModule(page, "t2tconfigdata");
        const accepted = await edit(page, "downscaleRatio", "0.125");
        assert.ok(!accepted.failed, accepted.text);
        const other = await run(session.tool, ["client", live, "get", `${Preview}:t2tconfigdata`], 20000);
        assert.equal(other.code, 0, other.stderr);
        assert.match(other.stdout, /downscaleRatio=0\.125(;|$)/m, other.stdout);
        // Without FILE the server gives everything it can; what it cannot is disabled and says why.
        const bare = await session.open(await session.console(["--live", live]));
        await chooseBranch(bare, Preview);
        await chooseModule(bare, "t2tconfigdata");
        assert.deepEqual(await valueRow(bare, "downscaleRatio"), {value: "0.125", source: ""});
        assert.match(await bare.$eval("#module-source", (line) => line.textContent), /does not know which mode/);
        for (const control of ["#save", "#show-diff"]) {
            assert.ok(await bare.$eval(control, (button) => button.disabled), control);
            assert.match(await bare.$eval(control, (button) => button.title), /without FILE cannot/);
        }
        noProblems(page);
        noProblems(bare);
    },

    // A gamma curve: the trigger tree's leaf opens its region, a dragged point is an edit, and
    // the saved file holds it.
    async gamma(session) {
        const page = await session.open(await session.console(["gamma.bin", "--save-to", "gamma-saved.bin"]));
        await chooseBranch(page, "Default|Sensor.0");
        await chooseModule(page, "gamma16_bps_v2");
        const region = "varitonal_gamma16_core.mod_gamma16_trigger_data[1].trigger[2].region";
        const leaves = await page.$$eval("svg.trigger-tree .leaf", (groups) => groups.map((group) => group.dataset.region));
        assert.equal(leaves.length, 6, leaves.join("; "));
        // Each node is labelled by the control variable of its level (control_var_type 3, 1;
        // the file names neither) and its interval.
        const labels = () => page.$$eval("svg.trigger-tree g > title", (titles) => titles.map((title) => title.textContent));
        assert.deepEqual((await labels()).slice(0, 3), ["variable 3 1–4", "variable 1 0–200", "variable 1 200–450"]);
        await page.click(`svg.trigger-tree .leaf[data-region="${region}"]`);
        const curvePath = `${region}[0].channel_r_tab.channel_r`;
        await page.waitForSelector(`details.revealed[data-path="${region}"]`);
        const point = `svg.curve[aria-label^="${curvePath}:"] circle[data-index="32"]`;
        const before = Number(await page.$eval(point, (circle) => circle.getAttribute("aria-valuenow")));
        await session.picture(page, "svg.trigger-tree", "gamma-tree");
        await session.picture(page, `svg.curve[aria-label^="${curvePath}:"]`, "gamma-curve");
        const box = await (await page.$(point)).boundingBox();
        const x = box.x + box.width / 2, y = box.y + box.height / 2;
        await page.evaluate(() => (document.getElementById("status").textContent = ""));
        await page.mouse.move(x, y);
        await page.mouse.down();
        for (let step = 1; step <= 5; ++step)
            await page.mouse.move(x, y + step * 10);
        await page.mouse.up();
        await page.waitForFunction(() => document.getElementById("status").textContent !== "");
        const after = Number(await page.$eval(point, (circle) => circle.getAttribute("aria-valuenow")));
        assert.ok(after < before, `point 32 went from ${before} to ${after}`);
        assert.equal(Number(await page.$eval(`input[aria-label="${curvePath}[32]"]`, (input) => input.value)),
                     after);
        // The keyboard moves a point by one code.
        const keyed = `svg.curve[aria-label^="${curvePath}:"] circle[data-index="10"]`;
        const keyedBefore = Number(await page.$eval(keyed, (circle) => circle.getAttribute("aria-valuenow")));
        await page.evaluate(() => (document.getElementById("status").textContent = ""));
        await page.$eval(keyed, (circle) => circle.focus());
        await page.keyboard.press("ArrowUp");
        await page.waitForFunction(() => document.getElementById("status").textContent !== "");
        assert.equal(Number(await page.$eval(`input[aria-label="${curvePath}[10]"]`, (input) => input.value)),
                     keyedBefore + 1);
        assert.match(await save(page), /^saved to gamma-saved\.bin/);
        const saved = await fileValue(session, "gamma-saved.bin", "Default|Sensor.0", "gamma16_bps_v2",
                                      curvePath);
        assert.equal(Number(saved.split(",")[32]), after);
        assert.equal(Number(saved.split(",")[10]), keyedBefore + 1);
        // The generation-0 nest of the same block: its levels as nested intervals.
        await chooseBranch(page, "Default");
        await chooseModule(page, "gamma16_bps");
        const nest = await page.$$eval("svg.trigger-tree .leaf", (groups) => groups.length);
        assert.equal(nest, 12, "a leaf per channel of each colour temperature and exposure range");
        // A nest's levels are named by their dimension, outermost first.
        const variables = [...new Set((await labels()).map((label) => label.split(" ")[0]))];
        assert.deepEqual(variables, ["drc_gain", "hdr_aec", "led_idx", "aec", "cct", "channel"]);
        // A leaf's gamma table is a curve, though its path runs through the DRC gain level.
        await page.click("svg.trigger-tree .leaf");
        await page.waitForSelector("details.revealed");
        assert.deepEqual(await page.$$eval("details.revealed svg", (svgs) => svgs.map((svg) => svg.getAttribute("class"))),
                         ["curve"]);
        noProblems(page);
    },

    // The session against --compare, by mode path and value path.
    async diff(session) {
        const page = await session.open(await session.console(["sample.bin", "--compare", "tuned.bin"]));
        await page.click("#show-diff");
        await page.waitForSelector("table.diff");
        const rows = await page.$$eval("table.diff tbody tr", (lines) =>
            lines.map((line) => [...line.cells].map((cell) => cell.textContent).join(" | ")));
        const mode = `${Preview} (1.0.0)`;
        assert.deepEqual(rows.sort(), [
            `t2tconfigdata | ${mode} | confidenceThreshold | 75 | 99`,
            `t2tconfigdata | ${mode} | downscaleRatio | 0.25 | 0.5`,
        ].sort());
        await session.picture(page, "#diff", "diff");
        noProblems(page);
    },

    // A lens-shading grid as a heat map. No module of this build holds a grid of gains, so the
    // page's own picture code is handed one: 17 by 13 gains, rising to the right.
    async heatMap(session) {
        const page = await session.open(await session.console(["sample.bin"]));
        const map = await page.evaluate(() => {
            const values = Array.from({length: 221}, (_, index) => 1 + (index % 17) / 16);
            const picture = Pictures.forArray({name: "r_gain_tab.r_gain", values, onChange: () => {},
                                               edit: async () => true}, "lsc34_bps");
            const cells = [...picture.querySelectorAll("rect")];
            return {kind: picture.getAttribute("class"), cells: cells.length,
                    columns: new Set(cells.map((cell) => cell.getAttribute("x"))).size,
                    lowest: cells[0].getAttribute("fill"), highest: cells[16].getAttribute("fill"),
                    nextRow: cells[17].getAttribute("fill")};
        });
        assert.deepEqual(map, {kind: "heatmap", cells: 221, columns: 17, lowest: "hsl(240, 80%, 50%)",
                               highest: "hsl(0, 80%, 50%)", nextRow: "hsl(240, 80%, 50%)"});
        noProblems(page);
    },

    // Timings on a file of about 16 MB: printed, not held to a limit.
    async timings(session) {
        const started = Date.now();
        const url = await session.console(["large.bin"]);
        const loaded = Date.now();
        const page = await session.open(url);
        const shown = Date.now();
        const branch = "Default|Sensor.15|Usecase.Video";
        await chooseBranch(page, branch);
        const clicked = Date.now();
        await chooseModule(page, "t2tconfigdata");
        const tracker = Date.now() - clicked;
        const size = fs.statSync(path.join(session.work, "large.bin")).size;
        console.log(`timing: ${(size / 1048576).toFixed(1)} MB file: server up in ${loaded - started} ms; ` +
                    `page with the mode tree in ${shown - loaded} ms (tree request and drawing ` +
                    `${await page.$eval("body", (body) => body.dataset.treeMs)} ms)`);
        console.log(`timing: t2tconfigdata's values in ${tracker} ms (request and drawing ` +
                    `${await page.$eval("body", (body) => body.dataset.moduleMs)} ms)`);
        noProblems(page);
    },
};

module.exports = {Session, scenarios};
