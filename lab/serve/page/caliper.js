// The caliper of a frozen screen: two points, and the time, rate and voltage between them.

export class Caliper {
  constructor(screen, handles, reading, onMove) {
    this.screen = screen;
    this.handles = handles;
    this.reading = reading;
    this.onMove = onMove;
    this.points = [{ x: 0.4, y: 0.5 }, { x: 0.5, y: 0.4 }]; // parts of the screen
    handles.forEach((handle, which) => {
      handle.addEventListener('pointerdown', event => this.grab(event, which));
      handle.addEventListener('keydown', event => this.step(event, which));
    });
    screen.addEventListener('pointerdown', event => this.begin(event));
  }

  set isShown(shown) {
    for (const element of [...this.handles, this.reading]) element.hidden = !shown;
    this.screen.classList.toggle('frozen', shown);
    if (shown) this.place();
  }
  get isShown() { return !this.reading.hidden; }

  begin(event) {
    if (!this.isShown || this.handles.includes(event.target)) return;
    this.points[0] = this.partOf(event);
    this.points[1] = this.partOf(event);
    this.grab(event, 1);
    this.place();
  }

  grab(event, which) {
    event.preventDefault();
    this.handles[which].focus();
    const move = next => { this.points[which] = this.partOf(next); this.place(); };
    const end = () => {
      window.removeEventListener('pointermove', move);
      window.removeEventListener('pointerup', end);
      window.removeEventListener('pointercancel', end);
    };
    window.addEventListener('pointermove', move);
    window.addEventListener('pointerup', end);
    window.addEventListener('pointercancel', end);
  }

  partOf(event) {
    const box = this.screen.getBoundingClientRect();
    const within = part => Math.min(1, Math.max(0, part));
    return { x: within((event.clientX - box.left) / box.width), y: within((event.clientY - box.top) / box.height) };
  }

  step(event, which) {
    const steps = { ArrowLeft: [-1, 0], ArrowRight: [1, 0], ArrowUp: [0, -1], ArrowDown: [0, 1] };
    const step = steps[event.key];
    if (!step) return;
    event.preventDefault();
    const box = this.screen.getBoundingClientRect();
    const size = event.shiftKey ? 10 : 1;
    const point = this.points[which];
    point.x = Math.min(1, Math.max(0, point.x + (step[0] * size) / box.width));
    point.y = Math.min(1, Math.max(0, point.y + (step[1] * size) / box.height));
    this.place();
  }

  place() {
    this.handles.forEach((handle, which) => {
      handle.style.left = this.points[which].x * 100 + '%';
      handle.style.top = this.points[which].y * 100 + '%';
      handle.setAttribute('aria-valuenow', Math.round(this.points[which].x * 100));
    });
    this.onMove();
  }

  // Draws both lines, and shows what lies between them.
  show(context, width, height, sweep, colour) {
    const [a, b] = this.points.map(point => ({ x: point.x * width, y: point.y * height }));
    context.strokeStyle = colour.mark;
    context.lineWidth = 1;
    context.beginPath();
    for (const point of [a, b]) {
      context.moveTo(point.x, 0);
      context.lineTo(point.x, height);
      context.moveTo(0, point.y);
      context.lineTo(width, point.y);
    }
    context.stroke();
    const seconds = Math.abs(b.x - a.x) / sweep.pixelsPerSecond;
    const millivolts = (a.y - b.y) / sweep.pixelsPerMillivolt;
    const rate = seconds > 0 ? Math.round(60 / seconds) + ' bpm' : '– bpm';
    this.reading.textContent = `${Math.round(seconds * 1000)} ms   ${rate}   ${millivolts.toFixed(2)} mV`;
    this.handles.forEach(handle => handle.setAttribute('aria-valuetext', this.reading.textContent));
  }
}
