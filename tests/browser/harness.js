// The browser tests' harness: child processes that are always ended, the headless browser with
// every request outside 127.0.0.1 refused, and the page's console errors collected.
"use strict";

const {spawn, execFile} = require("child_process");
const net = require("net");

const children = new Set();

/// Ends every child still running (SIGTERM, then SIGKILL for one that lingers).
function endChildren() {
    for (const child of children) {
        if (child.exitCode === null && child.signalCode === null) {
            child.kill("SIGTERM");
            setTimeout(() => child.exitCode === null && child.kill("SIGKILL"), 2000).unref();
        }
    }
}
process.on("exit", () => {
    for (const child of children) {
        if (child.exitCode === null && child.signalCode === null)
            child.kill("SIGKILL");
    }
});

/// Starts a long-running program and waits (at most timeoutMs) for a line of its standard output
/// that matches pattern; answers {child, match, output()}. It runs in the folder cwd.
function startServer(program, args, pattern, timeoutMs, cwd) {
    return new Promise((resolve, reject) => {
        const child = spawn(program, args, {cwd, stdio: ["ignore", "pipe", "pipe"]});
        children.add(child);
        let output = "";
        const collect = (chunk) => {
            output += chunk.toString();
            const match = output.match(pattern);
            if (match) {
                clearTimeout(timer);
                resolve({child, match, output: () => output});
            }
        };
        child.stdout.on("data", collect);
        child.stderr.on("data", (chunk) => (output += chunk.toString()));
        child.on("exit", (code) => {
            clearTimeout(timer);
            reject(new Error(`${program} ${args.join(" ")} ended (${code}) before it was up:\n${output}`));
        });
        const timer = setTimeout(() => {
            child.kill("SIGKILL");
            reject(new Error(`${program} ${args.join(" ")} was not up within ${timeoutMs} ms:\n${output}`));
        }, timeoutMs);
    });
}

/// Stops a server started by startServer and waits for it to end.
function stopServer(server) {
    return new Promise((resolve) => {
        if (server.child.exitCode !== null || server.child.signalCode !== null)
            return resolve();
        server.child.on("exit", () => resolve());
        server.child.kill("SIGTERM");
        setTimeout(() => server.child.kill("SIGKILL"), 5000).unref();
    });
}

/// Runs a program to its end (at most timeoutMs); answers {code, stdout, stderr}.
function run(program, args, timeoutMs = 60000) {
    return new Promise((resolve) => {
        const child = execFile(program, args, {timeout: timeoutMs, maxBuffer: 64 << 20},
                               (error, stdout, stderr) => {
                                   children.delete(child);
                                   resolve({code: error ? (error.code ?? 1) : 0, stdout, stderr});
                               });
        children.add(child);
    });
}

/// A TCP port on 127.0.0.1 that was free a moment ago.
function freePort() {
    return new Promise((resolve, reject) => {
        const server = net.createServer();
        server.on("error", reject);
        server.listen(0, "127.0.0.1", () => {
            const {port} = server.address();
            server.close(() => resolve(port));
        });
    });
}

/// Launches the system's Chromium headless, with name lookups and requests held to 127.0.0.1.
async function launchBrowser(puppeteer, executablePath) {
    return puppeteer.launch({
        executablePath,
        headless: true,
        args: [
            "--no-sandbox",
            "--disable-gpu",
            "--disable-dev-shm-usage",
            "--no-first-run",
            "--disable-sync",
            "--disable-background-networking",
            "--disable-component-update",
            "--disable-domain-reliability",
            "--disable-features=Translate,OptimizationHints,MediaRouter,AutofillServerCommunication",
            "--host-resolver-rules=MAP * ~NOTFOUND, EXCLUDE 127.0.0.1",
            "--proxy-server=direct://",
            "--font-render-hinting=none",
        ],
        timeout: 30000,
        protocolTimeout: 60000,
    });
}

/// A new page of 1200x800 whose console errors, uncaught exceptions and failed or foreign
/// requests are gathered in page.problems.
async function openPage(browser) {
    const page = await browser.newPage();
    await page.setViewport({width: 1200, height: 800});
    page.setDefaultTimeout(15000);
    page.problems = [];
    await page.setRequestInterception(true);
    page.on("request", (request) => {
        const url = new URL(request.url());
        if (url.protocol !== "data:" && url.hostname !== "127.0.0.1") {
            page.problems.push(`request outside 127.0.0.1 refused: ${request.url()}`);
            request.abort();
            return;
        }
        request.continue();
    });
    page.on("console", (message) => {
        if (message.type() === "error")
            page.problems.push(`console error: ${message.text()}`);
    });
    page.on("pageerror", (error) => page.problems.push(`page error: ${error.message}`));
    return page;
}

module.exports = {startServer, stopServer, run, freePort, launchBrowser, openPage, endChildren};
