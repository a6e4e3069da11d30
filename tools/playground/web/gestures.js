// Marks made with a mouse, a pen or a finger, turned into session-file steps
// in photo pixels: a box from its drag, a loop or a brush line from the
// trace. The server marks the photo from these exactly as the phone app
// marks it from a finger.

export class Gestures {
  // tool(): {kind, mode, radius} of the mark a new drag makes; enabled():
  // whether marks may be made now; done(step): a finished mark; hint(text).
  constructor(stage, { tool, enabled, done, hint }) {
    this.stage = stage;
    this.tool = tool;
    this.enabled = enabled;
    this.done = done;
    this.hint = hint;
    this.pointer = null;  // id of the pointer drawing
    const canvas = stage.canvas;
    canvas.addEventListener('pointerdown', (e) => this.down(e));
    canvas.addEventListener('pointermove', (e) => this.move(e));
    canvas.addEventListener('pointerup', (e) => this.up(e));
    canvas.addEventListener('pointercancel', (e) => this.drop(e));
    canvas.addEventListener('pointerleave', () => this.stage.setCursor(null));
  }

  down(e) {
    if (!this.enabled() || !e.isPrimary || this.pointer !== null) return;
    if (e.pointerType === 'mouse' && e.button !== 0) return;
    e.preventDefault();
    this.stage.canvas.setPointerCapture(e.pointerId);
    this.pointer = e.pointerId;
    const { kind, mode, radius } = this.tool();
    this.stage.setMark({ kind, mode, radius, points: [this.stage.toPhoto(e)] });
  }

  move(e) {
    if (this.pointer === null) {
      this.hover(e);
      return;
    }
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
    if (e.pointerId !== this.pointer) return;
    this.pointer = null;
    const step = toStep(this.stage.mark);
    if (typeof step === 'string') {
      this.stage.setMark(null);
      this.hint(step);
      return;
    }
    this.done(step);  // the mark stays drawn until its result is shown
  }

  drop(e) {
    if (e.pointerId !== this.pointer) return;
    this.pointer = null;
    this.stage.setMark(null);
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
function toStep({ kind, mode, radius, points }) {
  if (kind === 'box') {
    const [ax, ay] = points[0];
    const [bx, by] = points[points.length - 1];
    const box = [Math.min(ax, bx), Math.min(ay, by), Math.max(ax, bx), Math.max(ay, by)];
    if (box[2] <= box[0] || box[3] <= box[1]) return 'Drag from one corner to the other to draw a box.';
    return { kind, box };
  }
  if (kind === 'loop') {
    if (points.length < 3) return 'Draw a loop around an area: press, go round it and let go.';
    return { kind, mode, points };
  }
  return { kind, mode, radius, points };
}
