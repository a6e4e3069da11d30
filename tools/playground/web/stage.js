// The photo on screen: fitted into the stage at any size, with a canvas over
// it that draws the outline and the mark in progress at the screen's own
// resolution. Maps screen points to photo pixels.

const OUTLINE = '#ffe600';
const HALO = 'rgba(0, 0, 0, 0.7)';
const COLORS = { add: 'rgba(31, 157, 85, 0.45)', remove: 'rgba(210, 60, 60, 0.45)' };
const EDGES = { add: 'rgb(31, 157, 85)', remove: 'rgb(210, 60, 60)' };

export class Stage {
  constructor(stage, frame, image, canvas) {
    this.stage = stage;
    this.frame = frame;
    this.image = image;
    this.canvas = canvas;
    this.width = 0;   // photo pixels
    this.height = 0;
    this.scale = 1;   // CSS pixels per photo pixel
    this.outline = [];
    this.mark = null;    // {kind, mode, points, radius}: drawn while it is made and sent
    this.cursor = null;  // brush circle under a hovering mouse or pen
    new ResizeObserver(() => this.fit()).observe(stage);
  }

  setPhoto(width, height) {
    this.width = width;
    this.height = height;
    this.outline = [];
    this.mark = null;
    this.fit();
  }

  setOutline(outline) {
    this.outline = outline;
    this.draw();
  }

  setMark(mark) {
    this.mark = mark;
    this.draw();
  }

  setCursor(cursor) {
    this.cursor = cursor;
    this.draw();
  }

  // The photo pixel under a pointer event, clamped onto the photo.
  toPhoto(event) {
    const box = this.canvas.getBoundingClientRect();
    const x = Math.floor(((event.clientX - box.left) / box.width) * this.width);
    const y = Math.floor(((event.clientY - box.top) / box.height) * this.height);
    return [clamp(x, 0, this.width - 1), clamp(y, 0, this.height - 1)];
  }

  // The longer side, in device pixels, of a picture that fills the frame
  // sharply; in steps of 256 so that small changes keep the same picture.
  pixelsNeeded() {
    const ratio = window.devicePixelRatio || 1;
    const side = Math.max(this.width, this.height) * this.scale * ratio;
    return Math.ceil(side / 256) * 256;
  }

  // Photo pixels per CSS pixel, for a brush that feels the same at any zoom.
  photoPerScreen() {
    return this.scale > 0 ? 1 / this.scale : 1;
  }

  fit() {
    if (!this.width) return;
    const style = getComputedStyle(this.stage);
    // A stage with a height limit (a phone's) takes the photo's shape up to it.
    const height = style.maxHeight === 'none' ? this.stage.clientHeight : parseFloat(style.maxHeight);
    const roomX = this.stage.clientWidth - parseFloat(style.paddingLeft) - parseFloat(style.paddingRight);
    const roomY = height - parseFloat(style.paddingTop) - parseFloat(style.paddingBottom);
    this.scale = Math.max(0.01, Math.min(roomX / this.width, roomY / this.height));
    const cssWidth = Math.max(1, Math.floor(this.width * this.scale));
    const cssHeight = Math.max(1, Math.floor(this.height * this.scale));
    this.frame.style.width = `${cssWidth}px`;
    this.frame.style.height = `${cssHeight}px`;
    this.scale = cssWidth / this.width;
    const ratio = window.devicePixelRatio || 1;
    this.canvas.width = Math.round(cssWidth * ratio);
    this.canvas.height = Math.round(cssHeight * ratio);
    this.draw();
  }

  draw() {
    const g = this.canvas.getContext('2d');
    g.setTransform(1, 0, 0, 1, 0, 0);
    g.clearRect(0, 0, this.canvas.width, this.canvas.height);
    if (!this.width) return;
    const k = this.canvas.width / this.width;  // device pixels per photo pixel
    const ratio = this.canvas.width / Math.max(1, parseFloat(this.frame.style.width));
    this.drawOutline(g, k, ratio);
    if (this.mark) this.drawMark(g, k, ratio);
    if (this.cursor && !this.mark) this.drawCursor(g, k, ratio);
  }

  // The polygons of the outline, through pixel centres, crisp at any zoom.
  drawOutline(g, k, ratio) {
    g.lineJoin = 'round';
    for (const [color, width] of [[HALO, 3.5], [OUTLINE, 1.6]]) {
      g.strokeStyle = color;
      g.lineWidth = width * ratio;
      g.beginPath();
      for (const polygon of this.outline) tracePath(g, polygon, k, true);
      g.stroke();
    }
  }

  drawMark(g, k, ratio) {
    const { kind, mode, points, radius } = this.mark;
    g.lineJoin = 'round';
    g.lineCap = 'round';
    if (kind === 'box') {
      const [[ax, ay], [bx, by]] = [points[0], points[points.length - 1]];
      const x = Math.min(ax, bx) * k, y = Math.min(ay, by) * k;
      const w = (Math.abs(bx - ax) + 1) * k, h = (Math.abs(by - ay) + 1) * k;
      g.lineWidth = 2 * ratio;
      g.setLineDash([6 * ratio, 4 * ratio]);
      g.strokeStyle = '#fff';
      g.strokeRect(x, y, w, h);
      g.lineDashOffset = 5 * ratio;
      g.strokeStyle = '#000';
      g.strokeRect(x, y, w, h);
      g.setLineDash([]);
      return;
    }
    g.beginPath();
    if (kind === 'loop') {
      tracePath(g, points, k, true);
      g.fillStyle = COLORS[mode];
      g.fill();
      g.lineWidth = 2 * ratio;
      g.strokeStyle = EDGES[mode];
      g.stroke();
      return;
    }
    tracePath(g, points, k, false);
    if (points.length === 1) g.lineTo((points[0][0] + 0.5) * k + 0.01, (points[0][1] + 0.5) * k);
    g.lineWidth = (2 * radius + 1) * k;
    g.strokeStyle = COLORS[mode];
    g.stroke();
  }

  drawCursor(g, k, ratio) {
    const { x, y, radius, mode } = this.cursor;
    g.beginPath();
    g.arc((x + 0.5) * k, (y + 0.5) * k, (radius + 0.5) * k, 0, 2 * Math.PI);
    g.lineWidth = 1.5 * ratio;
    g.strokeStyle = EDGES[mode];
    g.stroke();
  }
}

function tracePath(g, points, k, closed) {
  points.forEach(([x, y], i) => {
    const px = (x + 0.5) * k, py = (y + 0.5) * k;
    if (i === 0) g.moveTo(px, py);
    else g.lineTo(px, py);
  });
  if (closed && points.length > 1) g.closePath();
}

function clamp(v, lo, hi) {
  return Math.min(hi, Math.max(lo, v));
}
