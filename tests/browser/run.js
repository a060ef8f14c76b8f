// Runs the console's browser scenarios in headless Chromium:
//   node run.js --paramctl PATH --work DIR [SCENARIO...]
// Exits 0 when all pass, 1 when one fails, 77 (skipped, with one line saying why) when Chromium
// or puppeteer-core is not installed. PARAM_UPDATE_PICTURES=1 rewrites the stored screenshots
// and docs/console.png instead of comparing them.
"use strict";

const fs = require("fs");
const path = require("path");
const {launchBrowser, endChildren} = require("./harness");

// Every scenario together must end within this, whatever hangs.
const WholeRunMs = 240000;
const SkipCode = 77;

function option(name) {
    const index = process.argv.indexOf(name);
    return index > 0 ? process.argv[index + 1] : undefined;
}

// PARAM_CHROMIUM names the browser to use instead of the system's.
function findChromium() {
    const candidates = process.env.PARAM_CHROMIUM ? [process.env.PARAM_CHROMIUM]
                                                  : ["/usr/bin/chromium", "/usr/bin/chromium-browser"];
    return candidates.find((candidate) => fs.existsSync(candidate));
}

function skip(reason) {
    console.log(`browser tests skipped: ${reason}`);
    process.exit(SkipCode);
}

async function main() {
    const tool = option("--paramctl");
    const work = option("--work");
    if (!tool || !work) {
        console.error("usage: node run.js --paramctl PATH --work DIR [SCENARIO...]");
        process.exit(2);
    }
    const chromium = findChromium();
    if (!chromium)
        skip("Chromium is not installed (scripts/setup-deps installs the Debian package chromium)");
    let puppeteer;
    try {
        puppeteer = require("puppeteer-core");
    } catch (error) {
        skip("puppeteer-core is not installed (scripts/setup-deps runs npm ci in tests/browser)");
    }
    const {makeFiles, makeLargeFile} = require("./fixtures");
    const {Session, scenarios} = require("./scenarios");
    const chosen = process.argv.slice(2).filter((word, index, all) =>
        !word.startsWith("--") && !(all[index - 1] || "").startsWith("--"));
    const names = chosen.length ? chosen : Object.keys(scenarios);
    for (const name of names) {
        if (!scenarios[name]) {
            console.error(`no scenario ${name}; there are: ${Object.keys(scenarios).join(", ")}`);
            process.exit(2);
        }
    }

    const sourceDir = path.resolve(__dirname, "../..");
    await makeFiles(tool, sourceDir, work);
    if (names.includes("timings"))
        await makeLargeFile(tool, work);
    const browser = await launchBrowser(puppeteer, chromium);
    let passed = 0, failed = 0;
    try {
        for (const name of names) {
            const session = new Session({tool, work, browser, sourceDir,
                                         updatePictures: process.env.PARAM_UPDATE_PICTURES === "1"});
            const started = Date.now();
            try {
                await scenarios[name](session);
                ++passed;
                console.log(`ok ${name} (${Date.now() - started} ms)`);
            } catch (error) {
                ++failed;
                console.log(`FAILED ${name}: ${error.stack || error}`);
                for (const server of session.servers)
                    console.log(`  output of the server:\n${server.output().replace(/^/gm, "    ")}`);
            } finally {
                await session.end();
            }
        }
    } finally {
        await browser.close();
    }
    console.log(`${passed} passed, ${failed} failed`);
    return failed === 0 ? 0 : 1;
}

const watchdog = setTimeout(() => {
    console.log(`FAILED: the browser tests did not end within ${WholeRunMs / 1000} s`);
    endChildren();
    process.exit(1);
}, WholeRunMs);
watchdog.unref();

main().then((code) => {
    endChildren();
    process.exit(code);
}, (error) => {
    console.log(`FAILED: ${error.stack || error}`);
    endChildren();
    process.exit(1);
});
