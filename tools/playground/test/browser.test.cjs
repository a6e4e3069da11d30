// The page in headless Chromium, as a person uses it: a box on the sample
// photo, a remove stroke, undo and redo, the cut-out downloaded; once with a
// mouse at a desktop size and once with a finger at a phone size. Each mask
// is checked against the cutout tool's for the same marks.
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
const SPOON = [[408, 80], [398, 160], [380, 235], [368, 290]];  // down the spoon's handle

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
  browser = await chromium.launch({ executablePath: '/usr/bin/chromium', args: ['--no-sandbox'] });
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

  // Screen point of a photo pixel's centre.
  async at([x, y]) {
    const box = await this.page.locator('#overlay').boundingBox();
    return { x: box.x + ((x + 0.5) * box.width) / WIDTH, y: box.y + ((y + 0.5) * box.height) / HEIGHT };
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
    const cdp = await this.page.context().newCDPSession(this.page);
    const touch = (type, p) => cdp.send('Input.dispatchTouchEvent', { type, touchPoints: p ? [{ x: p.x, y: p.y }] : [] });
    await touch('touchStart', screen[0]);
    for (let i = 1; i < screen.length; ++i)
      for (let k = 1; k <= 8; ++k) {
        const a = screen[i - 1], b = screen[i];
        await touch('touchMove', { x: a.x + ((b.x - a.x) * k) / 8, y: a.y + ((b.y - a.y) * k) / 8 });
      }
    await touch('touchEnd');
  }

  async press(selector) {
    if (this.input === 'touch') await this.page.tap(selector);
    else await this.page.click(selector);
  }

  async get(file) {
    const response = await this.page.request.get(`${base}/api/sessions/${this.id}/${file}`);
    assert.strictEqual(response.status(), 200, file);
    return response.body();
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

// Box, remove stroke, undo, redo, the cut-out downloaded; returns the
// person's session for the caller's own checks.
async function cutTheCupOut(person, name) {
  await person.open();

  const box = await person.step(() => person.drag([[72, 14], [300, 200], [482, 392]]));
  assert.ok(box.result && box.outline.length > 0, 'the box gave no outline');
  await person.page.waitForFunction(() => /object [\d.]+% of the photo/.test(document.querySelector('#result').textContent));
  await person.shot(`${name}-box.png`);
  const boxMask = await person.get('mask.png');
  const sent = JSON.parse(await person.get('session.json')).steps[0].box;
  sent.forEach((v, i) => assert.ok(Math.abs(v - [72, 14, 482, 392][i]) <= 2, `box corner ${v} is off`));
  assert.ok(boxMask.equals(cutout(['--box', sent.join(',')]).mask), 'the box mask differs from cutout\'s');

  await person.press('[data-tool=stroke]');
  await person.press('[data-mode=remove]');
  const stroke = await person.step(() => person.drag(SPOON));
  assert.ok(stroke.result);
  await person.shot(`${name}-stroke.png`);
  const strokeMask = await person.get('mask.png');
  assert.ok(!strokeMask.equals(boxMask), 'the remove stroke changed nothing');

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

test('desktop, with a mouse', { timeout: 60000 }, async () => {
  const page = await browser.newPage({ viewport: { width: 1280, height: 800 } });
  const person = new Person(page, 'mouse');
  await cutTheCupOut(person, 'desktop');
  // The README's picture: back to the box's cut-out, the page a little smaller.
  await person.step(() => person.press('#undo'));
  await page.setViewportSize({ width: 840, height: 580 });
  await page.waitForTimeout(200);
  await person.shot('playground.png');
  await page.close();
});

test('phone, with a finger', { timeout: 60000 }, async () => {
  const context = await browser.newContext({
    viewport: { width: 390, height: 844 }, deviceScaleFactor: 3, isMobile: true, hasTouch: true,
  });
  await cutTheCupOut(new Person(await context.newPage(), 'touch'), 'phone');
  await context.close();
});
