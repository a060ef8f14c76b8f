// Screenshots held against stored pictures: the share of pixels whose colour moved by more than
// a small step must stay under a tolerance, so font smoothing and anti-aliasing can differ.
"use strict";

const fs = require("fs");
const {PNG} = require("pngjs");

// A channel that moves by more than this counts the pixel as changed.
const ChannelStep = 48;
// At most this share of the pixels may change.
const ChangedShare = 0.002;

function changedShare(expected, actual) {
    if (expected.width !== actual.width || expected.height !== actual.height)
        return 1;
    let changed = 0;
    for (let offset = 0; offset < expected.data.length; offset += 4) {
        for (let channel = 0; channel < 3; ++channel) {
            if (Math.abs(expected.data[offset + channel] - actual.data[offset + channel]) > ChannelStep) {
                ++changed;
                break;
            }
        }
    }
    return changed / (expected.width * expected.height);
}

/// Holds a screenshot (PNG bytes) against the stored picture. With update set the picture is
/// (re)written instead. Answers null when they match, else the reason; a failing screenshot is
/// kept beside the stored one as NAME.actual.png.
function compare(storedPath, screenshot, update) {
    if (update) {
        fs.writeFileSync(storedPath, screenshot);
        return null;
    }
    if (!fs.existsSync(storedPath))
        return `no stored picture ${storedPath} (PARAM_UPDATE_PICTURES=1 writes it)`;
    const share = changedShare(PNG.sync.read(fs.readFileSync(storedPath)), PNG.sync.read(screenshot));
    if (share <= ChangedShare)
        return null;
    const actualPath = storedPath.replace(/\.png$/, ".actual.png");
    fs.writeFileSync(actualPath, screenshot);
    return `${(share * 100).toFixed(2)}% of the pixels differ from ${storedPath} (at most ` +
           `${ChangedShare * 100}%); the screenshot is in ${actualPath}`;
}

module.exports = {compare, changedShare};
