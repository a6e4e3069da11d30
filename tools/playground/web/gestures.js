// Marks made with a mouse, a pen or a finger, turned into session-file steps
// in photo pixels: a box from its drag, a loop or a brush line from the
// trace. The server marks the photo from these exactly as the phone app
// marks it from a finger. Two fingers zoom and pan the photo instead (a
// mark the first finger had begun is dropped); with a mouse, the wheel zooms
// and a drag with the right or middle button pans.

// A loop must enclose an area: at least this share of what a circle of the
// same length encloses (a loop drawn along a line encloses next to none),
// and this many screen pixels.
const ROUNDNESS = 0.03;
const LEAST_AREA = 64;

export class Gestures {
  // tool(): {kind, mode, radius} of the mark a new drag makes; enabled():
  // whether marks may be made now; done(step): a finished mark; hint(text).
  constructor(stage, { tool, enabled, done, hint }) {
    this.stage = stage;
    this.tool = tool;
    this.enabled = enabled;
    this.done = done;
    this.hint = hint;
    this.pointer = null;     // id of the pointer drawing
    this.touches = new Map();  // id -> [x, y] of each finger down, stage pixels
    this.pinch = null;       // {distance, x, y} when two fingers last moved
    this.pan = null;         // [x, y] of a mouse dragging with its right or middle button
    const canvas = stage.canvas;
    canvas.addEventListener('pointerdown', (e) => this.down(e));
    canvas.addEventListener('pointermove', (e) => this.move(e));
    canvas.addEventListener('pointerup', (e) => this.up(e));
    canvas.addEventListener('pointercancel', (e) => this.lift(e));
    canvas.addEventListener('pointerleave', () => this.stage.setCursor(null));
    canvas.addEventListener('wheel', (e) => this.wheel(e), { passive: false });
    canvas.addEventListener('contextmenu', (e) => e.preventDefault());
  }

  down(e) {
    if (e.pointerType === 'touch') {
      this.touches.set(e.pointerId, this.stage.toStage(e));
      if (this.touches.size === 2) return this.startPinch();
      if (this.touches.size > 2 || this.pinch) return;
    }
    if (e.pointerType === 'mouse' && e.button !== 0) {
      this.pan = this.stage.toStage(e);
      this.stage.canvas.setPointerCapture(e.pointerId);
      return;
    }
    if (!this.enabled() || !e.isPrimary || this.pointer !== null) return;
    e.preventDefault();
    this.stage.canvas.setPointerCapture(e.pointerId);
    this.pointer = e.pointerId;
    const { kind, mode, radius } = this.tool();
    this.stage.setMark({ kind, mode, radius, points: [this.stage.toPhoto(e)] });
  }

  move(e) {
    if (this.touches.has(e.pointerId)) {
      this.touches.set(e.pointerId, this.stage.toStage(e));
      if (this.pinch) return this.movePinch();
    }
    if (this.pan) return this.movePan(e);
    if (this.pointer === null) return this.hover(e);
    if (e.pointerId !== this.pointer) return;
    const points = this.stage.mark.points;
    const events = e.getCoalescedEvents ? e.getCoalescedEvents() : [e];
    for (const event of events.length ? events : [e]) {
      const p = this.stage.toPhoto(event);
      const last = points[points.length - 1];
      if (p[0] !== last[0] || p[1] !== last[1]) points.push(p);
    }
    this.stage.draw();
  }

  up(e) {
    const drawing = e.pointerId === this.pointer;
    this.lift(e, drawing);
    if (!drawing) return;
    const step = toStep(this.stage.mark, this.stage.photoPerScreen());
    if (typeof step === 'string') {
      this.stage.setMark(null);
      this.hint(step);
      return;
    }
    this.done(step);  // the mark stays drawn until its result is shown
  }

  // A pointer is gone; `keepMark` when its mark is about to be sent.
  lift(e, keepMark = false) {
    this.touches.delete(e.pointerId);
    if (this.touches.size < 2) this.pinch = this.touches.size ? this.pinch : null;
    if (e.pointerType === 'mouse') this.pan = null;
    if (e.pointerId !== this.pointer) return;
    this.pointer = null;
    if (!keepMark) this.stage.setMark(null);
  }

  startPinch() {
    if (this.pointer !== null) {  // the first finger was drawing: a pinch after all
      this.pointer = null;
      this.stage.setMark(null);
    }
    this.pinch = this.spread();
  }

  movePinch() {
    if (this.touches.size !== 2) return;
    const now = this.spread();
    const then = this.pinch;
    this.stage.zoomAt(now.distance / then.distance, then.x, then.y, now.x - then.x, now.y - then.y);
    this.pinch = now;
  }

  // The two fingers' distance and midpoint.
  spread() {
    const [[ax, ay], [bx, by]] = [...this.touches.values()];
    return { distance: Math.max(1, Math.hypot(bx - ax, by - ay)), x: (ax + bx) / 2, y: (ay + by) / 2 };
  }

  movePan(e) {
    const [x, y] = this.stage.toStage(e);
    this.stage.zoomAt(1, x, y, x - this.pan[0], y - this.pan[1]);
    this.pan = [x, y];
  }

  wheel(e) {
    e.preventDefault();
    const [x, y] = this.stage.toStage(e);
    this.stage.zoomAt(Math.exp(-e.deltaY / 500), x, y);
  }

  hover(e) {
    const { kind, mode, radius } = this.tool();
    const brush = (kind === 'stroke' || kind === 'cut') && e.pointerType !== 'touch' && this.enabled();
    if (!brush) {
      if (this.stage.cursor) this.stage.setCursor(null);
      return;
    }
    const [x, y] = this.stage.toPhoto(e);
    this.stage.setCursor({ x, y, radius, mode });
  }
}

// A step of the session file, or a string saying why the mark makes none.
// `photoPerScreen` says how large the mark looked.
function toStep({ kind, mode, radius, points }, photoPerScreen) {
  if (kind === 'box') {
    const [ax, ay] = points[0];
    const [bx, by] = points[points.length - 1];
    const box = [Math.min(ax, bx), Math.min(ay, by), Math.max(ax, bx), Math.max(ay, by)];
    if (box[2] <= box[0] || box[3] <= box[1]) return 'Drag from one corner to the other to draw a box.';
    return { kind, box };
  }
  if (kind === 'loop') {
    const { area, length } = shape(points);
    if (points.length < 3 || area < ROUNDNESS * (length * length) / (4 * Math.PI) ||
        area < LEAST_AREA * photoPerScreen * photoPerScreen)
      return 'That loop encloses almost nothing (it runs along a line): draw it round the part you mean.';
    return { kind, mode, points };
  }
  return { kind, mode, radius, points };
}

// The area a closed polygon encloses and the length around it.
function shape(points) {
  let twice = 0;
  let length = 0;
  points.forEach(([x, y], i) => {
    const [nx, ny] = points[(i + 1) % points.length];
    twice += x * ny - nx * y;
    length += Math.hypot(nx - x, ny - y);
  });
  return { area: Math.abs(twice) / 2, length };
}
