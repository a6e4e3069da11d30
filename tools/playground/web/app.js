// The page: choose a photo, mark it, see the cut, step through the history,
// download the results. One editing session on the server per photo.
import { ApiError, getBlob, getJson, postFile, postJson, sendBeacon } from './api.js';
import { Gestures } from './gestures.js';
import { Stage } from './stage.js';
import { NAMES, placesText, stepOutcome } from './words.js';

const $ = (id) => document.getElementById(id);
const TYPES = ['image/jpeg', 'image/png', 'image/webp'];
const EXTENSIONS = /\.(jpe?g|png|webp)$/i;  // for systems that give a file no type
const MAX_RADIUS = 1000;  // the session file's limit
const HEARTBEAT_MS = 20000;  // the server ends a session whose page is not heard from for minutes
const HINTS = {
  box: { add: 'Drag a box around the object.' },
  loop: {
    add: 'Draw a loop around a part that belongs to the object.',
    remove: 'Draw a loop around a part that is not the object.',
  },
  stroke: {
    add: 'Brush over parts of the object that are missing.',
    remove: 'Brush over parts that are not the object.',
  },
  cut: {
    add: 'Paint straight into the mask: no new segmentation.',
    remove: 'Erase straight from the mask: no new segmentation.',
  },
};

const state = {
  config: null,
  session: null,   // {id, width, height, name}
  busy: '',        // what runs now, '' when idle
  editing: false,  // the running step can be cancelled
  tool: 'box',
  mode: 'add',
  view: 'photo',   // 'photo' (the selection drawn over it) or 'cutout'
  viewSide: 0,     // the longer side of the picture shown, in pixels
  views: 0,        // pictures asked for, so that only the latest is shown
  canUndo: false,
  canRedo: false,
  steps: 0,
  shown: false,    // a result is on screen
  outline: [],     // its polygons, in photo pixels
  imageUrl: null,
};

const stage = new Stage($('stage'), $('frame'), $('view'), $('overlay'));
new ResizeObserver(() => refresh()).observe($('stage'));  // after the stage's own: the brush's photo pixels
new Gestures(stage, {
  tool: () => ({ kind: state.tool, mode: state.tool === 'box' ? 'add' : state.mode, radius: photoRadius() }),
  enabled: () => Boolean(state.session) && !state.busy,
  done: (step) => runStep(step),
  hint: (text) => setHint(text),
});
let sharpen = 0;
stage.onView = () => {
  $('fit').classList.toggle('hidden', !stage.zoomed());
  refresh();
  clearTimeout(sharpen);
  sharpen = setTimeout(sharpenView, 400);
};

// ---- what the page shows -------------------------------------------------------

function setHint(text) {
  $('hint').textContent = text;
}

function toolHint() {
  if (!state.session) return 'Choose a photo to begin.';
  const hints = HINTS[state.tool];
  return hints[state.mode] || hints.add;
}

function showMessage(text, kind = 'error') {
  $('message-text').textContent = text;
  $('message').classList.toggle('info', kind === 'info');
  $('message').classList.remove('hidden');
}

function hideMessage() {
  $('message').classList.add('hidden');
}

function setBusy(text, editing = false) {
  state.busy = text;
  state.editing = editing;
  $('busy-text').textContent = text;
  $('busy').classList.toggle('hidden', !text);
  $('busy-cancel').classList.toggle('hidden', !editing);
  $('busy-cancel').disabled = false;
  $('busy-progress').classList.add('hidden');
  if (text) stage.setCursor(null);
  refresh();
}

// An upload's progress, 0..1, under the busy text.
function setProgress(label, done) {
  $('busy-text').textContent = `${label} ${Math.floor(done * 100)}%`;
  $('busy-progress').value = done;
  $('busy-progress').classList.remove('hidden');
}

function refresh() {
  const open = Boolean(state.session);
  const idle = open && !state.busy;
  for (const b of document.querySelectorAll('[data-tool]')) {
    b.setAttribute('aria-pressed', String(b.dataset.tool === state.tool));
    b.disabled = !open;
  }
  for (const b of document.querySelectorAll('[data-mode]')) {
    b.setAttribute('aria-pressed', String(b.dataset.mode === state.mode && state.tool !== 'box'));
    b.disabled = !open || state.tool === 'box';
  }
  for (const b of document.querySelectorAll('[data-view]')) {
    b.setAttribute('aria-pressed', String(b.dataset.view === state.view));
    b.disabled = !idle;
  }
  $('undo').disabled = !idle || !state.canUndo;
  $('redo').disabled = !idle || !state.canRedo;
  $('reset').disabled = !idle || state.steps === 0;
  $('cancel').disabled = !state.editing;
  $('dl-mask').disabled = !idle || !state.shown;
  $('dl-cutout').disabled = !idle || !state.shown;
  $('dl-session').disabled = !idle || state.steps === 0;
  $('radius').disabled = !open || !(state.tool === 'stroke' || state.tool === 'cut');
  showBrush();
  $('frame').classList.toggle('checker', state.view === 'cutout');
  $('frame').classList.toggle('hidden', !open);
  $('empty').classList.toggle('hidden', open || Boolean(state.busy));
  $('file').disabled = Boolean(state.busy);
  for (const b of document.querySelectorAll('[data-sample]')) {
    b.setAttribute('aria-pressed', String(state.session?.name === b.dataset.sample));
    b.disabled = Boolean(state.busy);
  }
}

// The slider sets the brush's width on the screen: the label says it, and
// a dot shows it, whatever the photo's size or the zoom. What that covers
// of the photo is in the dot's title.
function showBrush() {
  const width = Number($('radius').value);
  $('radius-out').textContent = `${width} px`;
  $('radius-dot').style.width = $('radius-dot').style.height = `${width}px`;
  $('radius-dot').title = `${2 * photoRadius() + 1} photo pixels wide at this zoom`;
}

function photoRadius() {
  const screen = Number($('radius').value) / 2;
  return Math.min(MAX_RADIUS, Math.max(1, Math.round(screen * stage.photoPerScreen())));
}

function showPlaces(reply) {
  if (reply && reply.workers) $('places').textContent = placesText(reply.inUse, reply.workers);
}

// Fetches the picture for the current view at the screen's size. Only the
// latest of overlapping calls shows its picture.
async function showView() {
  const s = state.session;
  const asked = ++state.views;
  const blob = await getBlob(`/api/sessions/${s.id}/view?kind=${state.view}&max=${stage.pixelsNeeded()}`);
  if (asked !== state.views) return;
  const url = URL.createObjectURL(blob);
  const decoded = new Image();
  decoded.src = url;
  try {
    await decoded.decode();
  } catch {
    throw new ApiError(500, 'The browser could not show the image the server sent.');
  }
  if (asked !== state.views) return URL.revokeObjectURL(url);
  const image = $('view');
  image.src = url;
  if (state.imageUrl) URL.revokeObjectURL(state.imageUrl);
  state.imageUrl = url;
  state.viewSide = Math.max(decoded.naturalWidth, decoded.naturalHeight);
  showSelection();
}

// The cut-out speaks for itself; over the photo, the selection is drawn.
function showSelection() {
  stage.setOutline(state.outline, state.view === 'photo');
}

// After zooming in, a sharper picture if the one shown is too coarse and
// the photo has more to give; fetched while the person goes on marking.
function sharpenView() {
  const s = state.session;
  if (!s || state.busy) return;
  const most = Math.min(state.config?.viewMaxSide ?? 2048, Math.max(s.width, s.height));
  if (state.viewSide >= most || stage.pixelsNeeded() <= state.viewSide * 1.25) return;
  showView().catch(failed);
}

function logLine(text) {
  const item = document.createElement('li');
  item.textContent = text;
  $('log').prepend(item);  // newest first: in view without scrolling
}

// ---- sessions -------------------------------------------------------------------

function failed(error) {
  if (!(error instanceof ApiError)) {
    showMessage(`Something went wrong in the page: ${error.message || error}`);
    return;
  }
  showMessage(error.message);
  // The session is over (it ended, or its worker could not be replaced).
  if ([404, 410, 502].includes(error.status) && state.session) endSession();
}

function endSession() {
  state.session = null;
  state.canUndo = state.canRedo = state.shown = false;
  state.steps = 0;
  state.outline = [];
  stage.setOutline([], false);
  stage.setMark(null);
  setHint(toolHint());
  refresh();
}

function takeShown(reply) {
  state.canUndo = reply.canUndo;
  state.canRedo = reply.canRedo;
  state.steps = reply.steps;
  state.shown = reply.canUndo;
  state.outline = reply.outline;
}

// Opens a photo in a new session. The page's session, and all it shows,
// stays until the new one is open: a photo the server refuses changes
// nothing, and the new one takes the old one's place.
async function open(request, name, label) {
  if (state.busy) return;
  hideMessage();
  setBusy(label);
  try {
    const session = await request(`/api/sessions${state.session ? `?replaces=${state.session.id}` : ''}`);
    endSession();
    state.session = { ...session, name };
    state.view = 'photo';
    $('log').replaceChildren();
    $('result').textContent = `${name}: ${session.width} × ${session.height} pixels`;
    showPlaces(session);
    stage.setPhoto(session.width, session.height);
    await showView();
    setHint(toolHint());
    if (session.warning) showMessage(session.warning, 'info');
  } catch (error) {
    failed(error);
  } finally {
    setBusy('');
  }
}

function openSample(name) {
  return open((url) => postJson(url, { sample: name }), name, `Opening ${name}…`);
}

function openFile(file) {
  if (!file) return;
  if (!TYPES.includes(file.type) && !(file.type === '' && EXTENSIONS.test(file.name))) {
    showMessage(`"${file.name}" is not a photo the playground can open: choose a JPEG, PNG or WebP file.`);
    return;
  }
  const limit = state.config?.maxUploadBytes ?? Infinity;
  if (file.size > limit) {
    const mb = (n) => Math.ceil(n / 1048576);
    showMessage(`"${file.name}" is ${mb(file.size)} MB: too large. The playground takes files up to ${mb(limit)} MB.`);
    return;
  }
  const label = `Uploading ${file.name}…`;
  return open((url) => postFile(url, file, (sent, total) => {
    if (sent < total) setProgress(label, sent / total);
    else setBusy(`Opening ${file.name}…`);
  }), file.name, label);
}

function heartbeat() {
  if (!state.session) return;
  postJson(`/api/sessions/${state.session.id}/alive`, {}).then(showPlaces, (error) => {
    if (error instanceof ApiError && [404, 410].includes(error.status)) failed(error);
  });
}

// ---- edits and history ----------------------------------------------------------

async function runStep(step) {
  if (!state.session || state.busy) return;
  const edit = !['undo', 'redo', 'reset'].includes(step.kind);
  hideMessage();
  setBusy(edit ? 'Cutting…' : `${NAMES[step.kind]}…`, edit);
  const started = performance.now();
  const ticker = setInterval(() => {
    const seconds = Math.floor((performance.now() - started) / 1000);
    if (state.editing && seconds > 0) $('busy-text').textContent = `Cutting… ${seconds} s`;
  }, 250);
  try {
    const reply = await postJson(`/api/sessions/${state.session.id}/steps`, step);
    takeShown(reply);
    stage.setMark(null);
    // The photo does not change; the selection over it does, and the
    // cut-out when something changed.
    if (state.view === 'cutout' && (reply.result || reply.restored >= 0)) {
      setBusy('Drawing…');
      await showView();
    } else {
      showSelection();
    }
    report(step, reply);
  } catch (error) {
    stage.setMark(null);
    failed(error);
  } finally {
    clearInterval(ticker);
    setBusy('');
  }
}

function report(step, reply) {
  const outcome = stepOutcome(step, reply);
  $('result').textContent = outcome.line;
  logLine(outcome.line);
  if (outcome.note) showMessage(outcome.note, outcome.kind);
}

async function cancelEdit() {
  if (!state.editing || !state.session) return;
  $('busy-text').textContent = 'Cancelling…';
  $('busy-cancel').disabled = true;
  try {
    await postJson(`/api/sessions/${state.session.id}/cancel`, {});
  } catch (error) {
    failed(error);
  }
}

async function switchView(view) {
  if (state.view === view || !state.session || state.busy) return;
  state.view = view;
  setBusy('Drawing…');
  try {
    await showView();
  } catch (error) {
    failed(error);
  } finally {
    setBusy('');
  }
}

async function download(file, saveAs) {
  if (!state.session || state.busy) return;
  setBusy(`Preparing ${saveAs}…`);
  try {
    const blob = await getBlob(`/api/sessions/${state.session.id}/${file}`);
    const link = document.createElement('a');
    link.href = URL.createObjectURL(blob);
    link.download = saveAs;
    document.body.append(link);
    link.click();
    link.remove();
    setTimeout(() => URL.revokeObjectURL(link.href), 60000);
  } catch (error) {
    failed(error);
  } finally {
    setBusy('');
  }
}

function stem(name) {
  return name.replace(/\.[^.]*$/, '') || 'photo';
}

// ---- wiring ---------------------------------------------------------------------

function wire() {
  for (const b of document.querySelectorAll('[data-tool]'))
    b.addEventListener('click', () => {
      state.tool = b.dataset.tool;
      setHint(toolHint());
      refresh();
    });
  for (const b of document.querySelectorAll('[data-mode]'))
    b.addEventListener('click', () => {
      state.mode = b.dataset.mode;
      setHint(toolHint());
      refresh();
    });
  for (const b of document.querySelectorAll('[data-view]'))
    b.addEventListener('click', () => switchView(b.dataset.view));
  $('radius').addEventListener('input', refresh);
  $('fit').addEventListener('click', () => stage.fitAll());
  $('undo').addEventListener('click', () => runStep({ kind: 'undo' }));
  $('redo').addEventListener('click', () => runStep({ kind: 'redo' }));
  $('reset').addEventListener('click', () => runStep({ kind: 'reset' }));
  $('cancel').addEventListener('click', cancelEdit);
  $('busy-cancel').addEventListener('click', cancelEdit);
  $('dl-mask').addEventListener('click', () => download('mask.png', 'mask.png'));
  $('dl-cutout').addEventListener('click', () => download('cutout.png', 'cutout.png'));
  $('dl-session').addEventListener('click', () =>
    download('session.json', `${stem(state.session.name)}-session.json`));
  $('message-close').addEventListener('click', hideMessage);
  $('file').addEventListener('change', (e) => {
    openFile(e.target.files[0]);
    e.target.value = '';
  });
  wireDrop();

  document.addEventListener('keydown', (e) => {
    const key = e.key.toLowerCase();
    if ((e.ctrlKey || e.metaKey) && (key === 'z' || key === 'y')) {
      e.preventDefault();
      const redo = key === 'y' || e.shiftKey;
      if (redo && !$('redo').disabled) runStep({ kind: 'redo' });
      if (!redo && !$('undo').disabled) runStep({ kind: 'undo' });
    } else if (e.key === 'Escape') {
      if (state.editing) cancelEdit();
      else hideMessage();
    }
  });
  // The page is going away (closed, reloaded, left): its place is freed at
  // once, and with it the photo on the server.
  window.addEventListener('pagehide', () => {
    if (state.session) sendBeacon(`/api/sessions/${state.session.id}/close`);
  });
  setInterval(heartbeat, HEARTBEAT_MS);
  window.addEventListener('unhandledrejection', (e) => failed(e.reason));
}

function wireDrop() {
  const target = $('stage');
  target.addEventListener('dragover', (e) => {
    e.preventDefault();
    target.classList.add('dropping');
  });
  target.addEventListener('dragleave', () => target.classList.remove('dropping'));
  target.addEventListener('drop', (e) => {
    e.preventDefault();
    target.classList.remove('dropping');
    if (state.busy) showMessage(`Wait until "${state.busy.replace(/….*$/, '')}" is done, then drop the photo again.`, 'info');
    else openFile(e.dataTransfer.files[0]);
  });
}

async function start() {
  wire();
  refresh();
  try {
    state.config = await getJson('/api/config');
    showPlaces(state.config);
    $('idle-minutes').textContent = Math.round(state.config.idleSeconds / 60);
    const samples = await getJson('/api/samples');
    for (const sample of samples) {
      const b = document.createElement('button');
      b.type = 'button';
      b.dataset.sample = sample.name;
      b.textContent = stem(sample.name);
      b.title = `${sample.name}, ${sample.width} × ${sample.height}`;
      b.addEventListener('click', () => openSample(sample.name));
      $('samples').append(b);
    }
    if (samples.length) await openSample(samples[0].name);
    else setHint(toolHint());
  } catch (error) {
    setHint('Choose a photo to begin.');
    failed(error);
  }
}

start();
