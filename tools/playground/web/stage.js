// The photo on screen: fitted into the stage, zoomed and panned by the
// person, with a canvas over the whole stage that shows the selection (the
// rest of the photo dimmed, one outline) and the mark in progress at the
// screen's own resolution. Maps screen points to photo pixels.

const OUTLINE = '#ffe600';
const HALO = 'rgba(0, 0, 0, 0.7)';
const DIM = 'rgba(10, 14, 20, 0.5)';
const COLORS = { add: 'rgba(31, 157, 85, 0.45)', remove: 'rgba(210, 60, 60, 0.45)' };
const EDGES = { add: 'rgb(31, 157, 85)', remove: 'rgb(210, 60, 60)' };
const MAX_CSS_PER_PHOTO_PIXEL = 12;  // zooming in stops when one photo pixel is this wide

export class Stage {
  constructor(stage, frame, image, canvas) {
    this.stage = stage;
    this.frame = frame;
    this.image = image;
    this.canvas = canvas;
    this.width = 0;   // photo pixels
    this.height = 0;
    this.fitScale = 1;  // CSS pixels per photo pixel with the whole photo in view
    this.zoom = 1;      // times the fitted size
    this.left = 0;      // where the photo's corner is, in CSS pixels from the stage's
    this.top = 0;
    this.outline = [];
    this.selection = false;  // dim what is outside the outline
    this.mark = null;    // {kind, mode, points, radius}: drawn while it is made and sent
    this.cursor = null;  // brush circle under a hovering mouse or pen
    this.onView = () => {};  // called when zoom or pan change
    new ResizeObserver(() => this.fit()).observe(stage);
  }

  setPhoto(width, height) {
    this.width = width;
    this.height = height;
    this.outline = [];
    this.mark = null;
    this.zoom = 1;
    this.fit();
  }

  // The polygons of the selection, and whether to show it (the photo view)
  // or only the picture (the cut-out, which shows itself).
  setOutline(outline, selection) {
    this.outline = outline;
    this.selection = selection;
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

  scale() {
    return this.fitScale * this.zoom;  // CSS pixels per photo pixel now
  }

  // The photo pixel under a pointer event, clamped onto the photo.
  toPhoto(event) {
    const [x, y] = this.toStage(event);
    const k = this.scale();
    return [clamp(Math.floor((x - this.left) / k), 0, this.width - 1),
            clamp(Math.floor((y - this.top) / k), 0, this.height - 1)];
  }

  toStage(event) {
    const box = this.canvas.getBoundingClientRect();
    return [event.clientX - box.left, event.clientY - box.top];
  }

  // The longer side, in device pixels, of a picture that fills the photo's
  // place sharply at this zoom; in steps of 256 so that small changes keep
  // the same picture.
  pixelsNeeded() {
    const side = Math.max(this.width, this.height) * this.scale() * (window.devicePixelRatio || 1);
    return Math.ceil(side / 256) * 256;
  }

  // Photo pixels per CSS pixel: a brush set in screen pixels covers what
  // it looks like it covers, at any photo size and zoom.
  photoPerScreen() {
    return 1 / this.scale();
  }

  // Zooms by `factor` keeping the photo point under (x, y) (stage CSS
  // pixels) where it is, then moves the photo by (dx, dy).
  zoomAt(factor, x, y, dx = 0, dy = 0) {
    if (!this.width) return;
    const most = Math.max(1, MAX_CSS_PER_PHOTO_PIXEL / this.fitScale);
    const zoom = clamp(this.zoom * factor, 1, most);
    const k = this.fitScale * zoom / this.scale();
    this.left = x - (x - this.left) * k + dx;
    this.top = y - (y - this.top) * k + dy;
    this.zoom = zoom;
    this.place();
  }

  zoomed() {
    return this.zoom > 1.001;
  }

  fitAll() {
    this.zoom = 1;
    this.fit();
  }

  fit() {
    if (!this.width) return;
    const style = getComputedStyle(this.stage);
    const padX = parseFloat(style.paddingLeft) + parseFloat(style.paddingRight);
    const padY = parseFloat(style.paddingTop) + parseFloat(style.paddingBottom);
    const roomX = this.stage.clientWidth - padX;
    // A stage with a height limit (a phone's) takes the photo's shape up to it.
    if (style.maxHeight !== 'none')
      this.stage.style.height = `${Math.min(parseFloat(style.maxHeight), padY + (roomX * this.height) / this.width)}px`;
    const roomY = this.stage.clientHeight - padY;
    this.fitScale = Math.max(0.001, Math.min(roomX / this.width, roomY / this.height));
    this.frame.style.width = `${this.width * this.fitScale}px`;
    this.frame.style.height = `${this.height * this.fitScale}px`;
    const ratio = window.devicePixelRatio || 1;
    this.canvas.width = Math.round(this.stage.clientWidth * ratio);
    this.canvas.height = Math.round(this.stage.clientHeight * ratio);
    this.place();  // a zoom is kept; the photo stays in view
  }

  // Keeps the photo in view: centred along an axis where it fits, else
  // with no gap at either edge.
  place() {
    const along = (offset, size, room) => (size <= room ? (room - size) / 2 : clamp(offset, room - size, 0));
    const k = this.scale();
    this.left = along(this.left, this.width * k, this.stage.clientWidth);
    this.top = along(this.top, this.height * k, this.stage.clientHeight);
    this.frame.style.transform = `translate(${this.left}px, ${this.top}px) scale(${this.zoom})`;
    this.draw();
    this.onView();
  }

  draw() {
    const g = this.canvas.getContext('2d');
    g.setTransform(1, 0, 0, 1, 0, 0);
    g.clearRect(0, 0, this.canvas.width, this.canvas.height);
    if (!this.width) return;
    const ratio = this.canvas.width / Math.max(1, this.stage.clientWidth);  // device pixels per CSS pixel
    const view = { k: this.scale() * ratio, x: this.left * ratio, y: this.top * ratio, ratio };
    if (this.selection) this.drawSelection(g, view);
    if (this.mark) this.drawMark(g, view);
    if (this.cursor && !this.mark) this.drawCursor(g, view);
  }

  // The photo outside the outline dimmed, as photo editors show a
  // selection, and the outline once: through pixel centres, crisp at any zoom.
  drawSelection(g, view) {
    if (!this.outline.length) return;
    g.beginPath();
    g.rect(view.x, view.y, this.width * view.k, this.height * view.k);
    for (const polygon of this.outline) tracePath(g, polygon, view, true);
    g.fillStyle = DIM;
    g.fill('evenodd');
    g.lineJoin = 'round';
    g.beginPath();
    for (const polygon of this.outline) tracePath(g, polygon, view, true);
    for (const [color, width] of [[HALO, 3.5], [OUTLINE, 1.6]]) {
      g.strokeStyle = color;
      g.lineWidth = width * view.ratio;
      g.stroke();
    }
  }

  drawMark(g, view) {
    const { kind, mode, points, radius } = this.mark;
    const { k, ratio } = view;
    g.lineJoin = 'round';
    g.lineCap = 'round';
    if (kind === 'box') {
      const [[ax, ay], [bx, by]] = [points[0], points[points.length - 1]];
      const x = view.x + Math.min(ax, bx) * k, y = view.y + Math.min(ay, by) * k;
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
      tracePath(g, points, view, true);
      g.fillStyle = COLORS[mode];
      g.fill();
      g.lineWidth = 2 * ratio;
      g.strokeStyle = EDGES[mode];
      g.stroke();
      return;
    }
    tracePath(g, points, view, false);
    if (points.length === 1) g.lineTo(view.x + (points[0][0] + 0.5) * k + 0.01, view.y + (points[0][1] + 0.5) * k);
    g.lineWidth = (2 * radius + 1) * k;
    g.strokeStyle = COLORS[mode];
    g.stroke();
  }

  drawCursor(g, view) {
    const { x, y, radius, mode } = this.cursor;
    g.beginPath();
    g.arc(view.x + (x + 0.5) * view.k, view.y + (y + 0.5) * view.k, (radius + 0.5) * view.k, 0, 2 * Math.PI);
    g.lineWidth = 1.5 * view.ratio;
    g.strokeStyle = EDGES[mode];
    g.stroke();
  }
}

function tracePath(g, points, view, closed) {
  points.forEach(([x, y], i) => {
    const px = view.x + (x + 0.5) * view.k, py = view.y + (y + 0.5) * view.k;
    if (i === 0) g.moveTo(px, py);
    else g.lineTo(px, py);
  });
  if (closed && points.length > 1) g.closePath();
}

function clamp(v, lo, hi) {
  return Math.min(hi, Math.max(lo, v));
}
