// The page in headless Chromium, as a person uses it: a box on the sample
// photo, a remove stroke, undo and redo, the cut-out downloaded; once with a
// mouse at a desktop size and once with a finger at a phone size. Each mask
// is checked against the cutout tool's for the same marks. Along the way:
// the session's worker is killed and the session comes back; the brush is
// labelled in screen pixels; on the desktop a large photo uploads with its
// progress shown, a refused one leaves the session as it was, a loop that
// encloses nothing is refused in words, and a closed page frees its place; on the phone the photo is pinched, zoomed and
// panned, and an error fits the screen.
//
// Run by `make test-browser`, which sets PLAYGROUND, CUTOUT and SHOTS (the
// folder for screenshots) and puts playwright-core on NODE_PATH.
const { test, before, after } = require('node:test');
const assert = require('node:assert');
const { spawn, execFileSync } = require('node:child_process');
const fs = require('node:fs');
const os = require('node:os');
const path = require('node:path');
const { chromium } = require('playwright-core');

const PHOTO = path.resolve(__dirname, '../../../data/samples/coffee.png');
const WIDTH = 600;
const HEIGHT = 400;
const SHOTS = process.env.SHOTS;
const SPOON = [[404, 110], [398, 160], [380, 235], [372, 270]];  // down the spoon's handle
const BRUSH = 30;  // the slider: the brush's width on the screen, in CSS pixels

let server;
let base;
let browser;

before(async () => {
  fs.mkdirSync(SHOTS, { recursive: true });
  server = spawn(process.env.PLAYGROUND, ['--port', '0'], { stdio: ['ignore', 'pipe', 'inherit'] });
  base = await new Promise((resolve, reject) => {
    server.stdout.once('data', (line) => resolve(/http:\/\/[\d.:]+/.exec(String(line))[0]));
    server.once('exit', () => reject(new Error('the server did not start')));
  });
  // Playwright starts it with a fresh profile of its own.
  browser = await chromium.launch({
    executablePath: '/usr/bin/chromium',
    args: ['--headless', '--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run',
      '--disable-background-networking', '--disable-component-update', '--disable-sync'],
  });
});

after(async () => {
  await browser?.close();
  server?.kill('SIGTERM');
});

// cutout's outputs for the same photo and marks: a --box, or a session file.
function cutout(args) {
  const out = fs.mkdtempSync(path.join(os.tmpdir(), 'playground-browser-'));
  execFileSync(process.env.CUTOUT, [PHOTO, ...args, '-o', out], { stdio: 'ignore' });
  const files = { mask: fs.readFileSync(path.join(out, 'mask.png')), cutout: fs.readFileSync(path.join(out, 'cutout.png')) };
  fs.rmSync(out, { recursive: true });
  return files;
}

// The server's children: one worker per session.
function workers() {
  return fs.readdirSync('/proc').filter((p) => /^\d+$/.test(p)).filter((p) => {
    try {
      return fs.readFileSync(`/proc/${p}/stat`, 'utf8').replace(/^.*\) /, '').split(' ')[1] === String(server.pid);
    } catch {
      return false;
    }
  }).map(Number);
}

async function placesInUse() {
  return (await (await fetch(`${base}/api/config`)).json()).inUse;
}

class Person {
  constructor(page, input) {
    this.page = page;
    this.input = input;  // 'mouse' or 'touch'
  }

  async open() {
    const opened = this.page.waitForResponse((r) => r.url().endsWith('/api/sessions') && r.status() === 201);
    await this.page.goto(base);
    this.id = (await (await opened).json()).id;
    await this.idle();
    await this.page.evaluate(() => {
      window.pointerTypes = [];
      document.querySelector('#overlay').addEventListener('pointerdown', (e) => window.pointerTypes.push(e.pointerType));
    });
  }

  async idle() {
    await this.page.waitForFunction(() => document.querySelector('#busy').classList.contains('hidden'));
  }

  // Waits for the step that `act` sends and for the page to show its result.
  async step(act) {
    const answered = this.page.waitForResponse((r) => r.url().endsWith('/steps'));
    await act();
    const reply = await (await answered).json();
    await this.idle();
    return reply;
  }

  // Screen point of a photo pixel's centre, wherever zoom and pan put it.
  async at([x, y]) {
    const box = await this.page.locator('#view').boundingBox();
    return { x: box.x + ((x + 0.5) * box.width) / WIDTH, y: box.y + ((y + 0.5) * box.height) / HEIGHT };
  }

  // CSS pixels per photo pixel now.
  async scale() {
    return (await this.page.locator('#view').boundingBox()).width / WIDTH;
  }

  async touches(type, points) {
    this.cdp ??= await this.page.context().newCDPSession(this.page);
    await this.cdp.send('Input.dispatchTouchEvent', { type, touchPoints: points.map((p, id) => ({ ...p, id })) });
  }

  async drag(points) {
    const screen = [];
    for (const p of points) screen.push(await this.at(p));
    if (this.input === 'mouse') {
      await this.page.mouse.move(screen[0].x, screen[0].y);
      await this.page.mouse.down();
      for (const p of screen.slice(1)) await this.page.mouse.move(p.x, p.y, { steps: 8 });
      await this.page.mouse.up();
      return;
    }
    await this.touches('touchStart', [screen[0]]);
    for (let i = 1; i < screen.length; ++i)
      for (let k = 1; k <= 8; ++k) {
        const a = screen[i - 1], b = screen[i];
        await this.touches('touchMove', [{ x: a.x + ((b.x - a.x) * k) / 8, y: a.y + ((b.y - a.y) * k) / 8 }]);
      }
    await this.touches('touchEnd', []);
  }

  // Two fingers from `from` to `to` (pairs of screen points), in steps.
  async pinch(from, to) {
    await this.touches('touchStart', from);
    for (let k = 1; k <= 10; ++k)
      await this.touches('touchMove', from.map((a, i) => ({ x: a.x + ((to[i].x - a.x) * k) / 10, y: a.y + ((to[i].y - a.y) * k) / 10 })));
    await this.touches('touchEnd', []);
  }

  async press(selector) {
    if (this.input === 'touch') await this.page.tap(selector);
    else await this.page.click(selector);
  }

  async get(file, id = this.id) {
    const response = await this.page.request.get(`${base}/api/sessions/${id}/${file}`);
    assert.strictEqual(response.status(), 200, file);
    return response.body();
  }

  async message() {
    await this.page.waitForSelector('#message:not(.hidden)');
    return this.page.textContent('#message-text');
  }

  async shot(name) {
    await this.page.screenshot({ path: path.join(SHOTS, name) });
  }
}

async function session(person) {
  const file = path.join(os.tmpdir(), `playground-browser-${person.input}.json`);
  fs.writeFileSync(file, await person.get('session.json'));
  return file;
}

// Box, remove stroke (after the worker was killed), undo, redo, the
// cut-out downloaded; `zoomed` runs on the box's result before the stroke.
async function cutTheCupOut(person, name, zoomed = async () => {}) {
  await person.open();

  const box = await person.step(() => person.drag([[72, 14], [300, 200], [482, 392]]));
  assert.ok(box.result && box.outline.length > 0, 'the box gave no outline');
  await person.page.waitForFunction(() => /object [\d.]+% of the photo/.test(document.querySelector('#result').textContent));
  await person.shot(`${name}-box.png`);
  const boxMask = await person.get('mask.png');
  const sent = JSON.parse(await person.get('session.json')).steps[0].box;
  sent.forEach((v, i) => assert.ok(Math.abs(v - [72, 14, 482, 392][i]) <= 2, `box corner ${v} is off`));
  assert.ok(boxMask.equals(cutout(['--box', sent.join(',')]).mask), 'the box mask differs from cutout\'s');
  await zoomed();

  // The brush is set and labelled in screen pixels, whatever the photo's
  // size and the zoom; what it covers of the photo follows the zoom.
  await person.press('[data-tool=stroke]');
  await person.press('[data-mode=remove]');
  await person.page.$eval('#radius', (slider, width) => {
    slider.value = width;
    slider.dispatchEvent(new Event('input'));
  }, BRUSH);
  assert.strictEqual(await person.page.textContent('#radius-out'), `${BRUSH} px`);
  assert.strictEqual(Math.round((await person.page.locator('#radius-dot').boundingBox()).width), BRUSH);
  const radius = Math.max(1, Math.round(BRUSH / 2 / (await person.scale())));

  // The worker dies between two edits: the next one finds the session as it was.
  assert.strictEqual(workers().length, 1);
  process.kill(workers()[0], 'SIGKILL');
  const stroke = await person.step(() => person.drag(SPOON));
  assert.ok(stroke.result);
  assert.strictEqual(stroke.restored, 1, 'the session was not taken over by a new worker');
  assert.match(await person.message(), /replayed its 1 step/);
  await person.shot(`${name}-stroke.png`);
  const strokeMask = await person.get('mask.png');
  assert.ok(!strokeMask.equals(boxMask), 'the remove stroke changed nothing');
  const strokeStep = JSON.parse(await person.get('session.json')).steps[1];
  assert.strictEqual(strokeStep.radius, radius, 'the brush is not the width it shows');
  strokeStep.points.forEach(([x, y]) => assert.ok(x >= 360 && x <= 416 && y >= 72 && y <= 298, `stroke at ${x}, ${y}`));

  if (person.input === 'mouse') await person.step(() => person.page.keyboard.press('Control+z'));
  else await person.step(() => person.press('#undo'));
  assert.ok((await person.get('mask.png')).equals(boxMask), 'undo did not bring the box mask back');
  if (person.input === 'mouse') await person.step(() => person.page.keyboard.press('Control+Shift+z'));
  else await person.step(() => person.press('#redo'));
  assert.ok((await person.get('mask.png')).equals(strokeMask), 'redo did not bring the stroke mask back');

  await person.press('[data-view=cutout]');
  await person.idle();
  await person.shot(`${name}-cutout.png`);
  const downloading = person.page.waitForEvent('download');
  await person.press('#dl-cutout');
  const download = await downloading;
  assert.strictEqual(download.suggestedFilename(), 'cutout.png');
  const cut = fs.readFileSync(await download.path());

  const file = await session(person);
  const replay = cutout(['--edits', file]);
  fs.rmSync(file);
  assert.ok(strokeMask.equals(replay.mask), 'the session file replays to another mask');
  assert.ok(cut.equals(replay.cutout), 'the downloaded cut-out differs from cutout\'s');
  const types = await person.page.evaluate(() => window.pointerTypes);
  assert.ok(types.length >= 2 && types.every((t) => t === person.input), `pointer types: ${types}`);
}

// A photo the server refuses leaves the session as it was; a large one
// uploads with its progress shown, and takes the session's place.
async function openOtherPhotos(person) {
  const mask = await person.get('mask.png');
  const bomb = Buffer.concat([Buffer.from('89504e470d0a1a0a0000000d49484452', 'hex'),
    Buffer.from([0, 1, 0x86, 0xa0, 0, 1, 0x86, 0xa0, 8, 2, 0, 0, 0]), Buffer.alloc(4)]);
  await person.page.setInputFiles('#file', { name: 'bomb.png', mimeType: 'image/png', buffer: bomb });
  assert.match(await person.message(), /too large: 100000 x 100000 pixels/);
  assert.ok((await person.get('mask.png')).equals(mask), 'a refused photo changed the session');
  assert.match(await person.page.textContent('#result'), /object [\d.]+% of the photo/);

  // Some 12 MB (the photo and bytes after its end, which decoders skip) at 4 MB/s.
  const large = Buffer.concat([fs.readFileSync(PHOTO), Buffer.alloc(12 << 20, 7)]);
  const cdp = await person.page.context().newCDPSession(person.page);
  await cdp.send('Network.enable');
  await cdp.send('Network.emulateNetworkConditions',
    { offline: false, latency: 0, downloadThroughput: -1, uploadThroughput: 4 << 20 });
  const opened = person.page.waitForResponse((r) => /\/api\/sessions\?replaces=/.test(r.url()));
  await person.page.setInputFiles('#file', { name: 'large.png', mimeType: 'image/png', buffer: large });
  await person.page.waitForFunction(() => {
    const bar = document.querySelector('#busy-progress');
    return !bar.classList.contains('hidden') && bar.value > 0.05 && bar.value < 0.95 &&
      /Uploading large\.png… \d+%/.test(document.querySelector('#busy-text').textContent);
  }, null, { timeout: 10000 });
  await person.shot('desktop-upload.png');
  assert.strictEqual((await opened).status(), 201);
  await cdp.send('Network.emulateNetworkConditions', { offline: false, latency: 0, downloadThroughput: -1, uploadThroughput: -1 });
  await person.idle();
  const old = await person.page.request.get(`${base}/api/sessions/${person.id}/mask.png`);
  assert.strictEqual(old.status(), 410, 'the replaced session still runs');
  assert.strictEqual(await placesInUse(), 1);
}

test('desktop, with a mouse', { timeout: 90000 }, async () => {
  const page = await browser.newPage({ viewport: { width: 1280, height: 800 } });
  const person = new Person(page, 'mouse');
  await cutTheCupOut(person, 'desktop');
  // The README's picture: back to the box's cut-out, the page a little smaller.
  await person.step(() => person.press('#undo'));
  await page.setViewportSize({ width: 840, height: 580 });
  await page.waitForTimeout(200);
  await person.shot('playground.png');
  // A loop drawn along a line encloses nothing: the page says so, and sends nothing.
  let sent = 0;
  page.on('request', (r) => { sent += r.url().endsWith('/steps'); });
  await person.press('[data-tool=loop]');
  await person.drag([[100, 300], [300, 302], [500, 304], [300, 303]]);
  assert.match(await page.textContent('#hint'), /encloses almost nothing/);
  assert.strictEqual(sent, 0);
  await openOtherPhotos(person);

  // A second page takes a second place, and gives it back as it closes.
  const second = new Person(await browser.newPage(), 'mouse');
  await second.open();
  assert.match(await second.page.textContent('#places'), /in use: 2 of 4/);
  for (const [gone, left] of [[second.page, 1], [page, 0]]) {
    await gone.close({ runBeforeUnload: true });
    for (let i = 0; i < 20 && (await placesInUse()) !== left; ++i) await new Promise((r) => setTimeout(r, 100));
    assert.strictEqual(await placesInUse(), left, 'a closed page kept its place');
  }
});

test('phone, with a finger', { timeout: 90000 }, async () => {
  const context = await browser.newContext({
    viewport: { width: 390, height: 844 }, deviceScaleFactor: 3, isMobile: true, hasTouch: true,
  });
  const person = new Person(await context.newPage(), 'touch');
  await cutTheCupOut(person, 'phone', async () => {
    // Two fingers spread apart zoom in about their middle; moved together,
    // they pan. The spoon's handle, where the stroke goes, stays in view.
    const fitted = await person.scale();
    const middle = await person.at([390, 185]);
    await person.pinch([{ x: middle.x - 30, y: middle.y }, { x: middle.x + 30, y: middle.y }],
      [{ x: middle.x - 60, y: middle.y }, { x: middle.x + 60, y: middle.y }]);
    const zoom = (await person.scale()) / fitted;
    assert.ok(Math.abs(zoom - 2) < 0.05, `zoomed ${zoom} times, not 2`);
    const stayed = await person.at([390, 185]);
    assert.ok(Math.hypot(stayed.x - middle.x, stayed.y - middle.y) < 3, 'the pinch moved its middle');
    await person.pinch([{ x: middle.x - 40, y: middle.y }, { x: middle.x + 40, y: middle.y }],
      [{ x: middle.x - 60, y: middle.y - 15 }, { x: middle.x + 20, y: middle.y - 15 }]);
    const panned = await person.at([390, 185]);
    assert.ok(Math.abs(panned.x - (middle.x - 20)) < 3 && Math.abs(panned.y - (middle.y - 15)) < 3, 'the pan went astray');
    assert.ok(await person.page.isVisible('#fit'));
    await person.shot('phone-zoomed.png');
  });

  // An error on a phone reads across the screen, not in a narrow column.
  await person.page.setInputFiles('#file', { name: 'notes.txt', mimeType: 'text/plain', buffer: Buffer.from('hello') });
  await person.message();
  const toast = await person.page.locator('#message').boundingBox();
  assert.ok(toast.width > 340 && toast.height < 90, `the message is ${toast.width} x ${toast.height}`);
  await person.shot('phone-message.png');
  await context.close();
});
