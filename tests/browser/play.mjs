// usage: node play.mjs [--OPTION...] K7M CLIP...
// Copies each clip with `k7m remux --OPTION...` and has a headless Chromium play the copy to its end. Duration, size
// and number of frames have to be those that the clip and the program tell.
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import { mkdtempSync, rmSync } from 'node:fs';
import { tmpdir } from 'node:os';
import path from 'node:path';

import { chromium } from 'playwright-core';

import { serve } from './serve.mjs';

const flags = [
  '--headless', '--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run',
  '--disable-background-networking', '--disable-component-update', '--disable-sync',
  '--autoplay-policy=no-user-gesture-required',
];
const patience = 60000;  // Milliseconds for one clip; the machine may be busy.

// Runs in the page: plays a file and tells how that went.
async function playInPage({ url, patience }) {
  const video = document.querySelector('video');
  const happened = (name) => new Promise((resolve, reject) => {
    video.addEventListener(name, resolve, { once: true });
    video.addEventListener('error', () => reject(new Error(video.error.message)), { once: true });
    setTimeout(() => reject(new Error(`no '${name}' after ${patience} ms, at ` +
                                      `${video.currentTime} of ${video.duration} s`)), patience);
  });
  const loaded = happened('loadeddata');
  video.src = url;
  await loaded;
  const duration = video.duration;  // At the end Chromium replaces it by what it has played.
  const ended = happened('ended');
  await video.play();
  await ended;
  const quality = video.getVideoPlaybackQuality();
  return {
    duration,
    end: video.currentTime,
    width: video.videoWidth,
    height: video.videoHeight,
    frames: quality.totalVideoFrames,
    audioBytes: video.webkitAudioDecodedByteCount,
  };
}

function check(played, info) {
  const video = info.tracks.find((track) => track.mediaType === 'vide');
  const hasSound = info.tracks.some((track) => track.mediaType === 'soun');
  // Chromium adds up the durations of the samples: it knows neither of the wait at the begin of a track
  // nor how long its last sample lasts. Together that is less than the tenth of a second here.
  const { seconds } = info.document;
  assert.ok(Math.abs(played.duration - seconds) < 0.1, `lasts ${played.duration}, not ${seconds}`);
  assert.ok(Math.abs(played.end - seconds) < 0.1, `ended at ${played.end}`);
  assert.equal(played.width, video.width);
  assert.equal(played.height, video.height);
  // The edit of length 0 before a track's wait makes Chromium decode the first picture once more.
  const again = played.frames - video.sampleCount;
  assert.ok(again === 0 || again === 1, `${played.frames} frames`);
  assert.equal(played.audioBytes > 0, hasSound, `${played.audioBytes} bytes of sound were decoded`);
}

const isOption = (argument) => argument.startsWith('--');
const options = process.argv.slice(2).filter(isOption);
const [k7m, ...clips] = process.argv.slice(2).filter((argument) => !isOption(argument));
assert.ok(k7m && clips.length > 0, 'usage: node play.mjs [--OPTION...] K7M CLIP...');
const folder = mkdtempSync(path.join(tmpdir(), 'k7m-browser-'));
const server = await serve(folder);
let browser;
try {
  browser = await chromium.launchPersistentContext(path.join(folder, 'profile'), {
    executablePath: '/usr/bin/chromium', args: flags, headless: true,
  });
  for (const clip of clips) {
    const copy = `${path.basename(clip)}.mp4`;
    execFileSync(k7m, ['remux', ...options, clip, path.join(folder, copy)], { stdio: 'inherit' });
    const info = JSON.parse(execFileSync(k7m, ['info', '--json', path.join(folder, copy)]));
    const page = await browser.newPage();
    await page.goto(`http://127.0.0.1:${server.address().port}/`);
    const played = await page.evaluate(playInPage, { url: `/${encodeURIComponent(copy)}`, patience });
    console.log(path.basename(clip), JSON.stringify(played));
    check(played, info);
    await page.close();
  }
} finally {
  await browser?.close();
  server.close();
  rmSync(folder, { recursive: true, force: true, maxRetries: 5 });
}
