// The samples of the last minute, and the traces that sweep over the paper.
import { drawGrid, drawLabels, layOut, fit, colours, leadNames } from './paper.js';

const keptSeconds = 60;
const gapMillimetres = 8; // blank ahead of the pen
const penPixels = 2; // of it that stay, because its last line extends past its end

// The samples received, by number since the stream began.
export class Tape {
  constructor() { this.reset(0); }

  reset(rate) {
    this.rate = rate;
    this.end = 0; // number of the next sample
    this.size = Math.ceil(rate * keptSeconds);
    this.leads = leadNames.map(() => new Float32Array(this.size));
  }

  add(event) {
    const count = event.leads[0].length;
    for (let lead = 0; lead < event.leads.length; ++lead) {
      const row = event.leads[lead];
      const kept = this.leads[lead];
      for (let i = 0; i < count; ++i) kept[(this.end + i) % this.size] = row[i];
    }
    this.end += count;
  }

  copy() {
    return Object.assign(new Tape(), this, { leads: this.leads.map(lead => lead.slice()) });
  }

  at(lead, number) { return this.leads[lead][number % this.size]; }
  get begin() { return Math.max(0, this.end - this.size); }
}

// Draws the tape into panels, each sweeping by itself over its own width.
export class Sweep {
  constructor(tape, paperCanvas, traceCanvas) {
    this.tape = tape;
    this.paperCanvas = paperCanvas;
    this.traceCanvas = traceCanvas;
    this.settings = { layout: '3x4', gain: 10, speed: 25, scale: 4 };
    this.supplied = [];
    this.drawn = 0;
  }

  get pixelsPerSecond() { return this.settings.speed * this.settings.scale; }
  get pixelsPerMillivolt() { return this.settings.gain * this.settings.scale; }

  // Redraws everything: paper, labels, and as much of the tape as fits.
  redraw() {
    const colour = colours();
    const paper = fit(this.paperCanvas);
    const { context, width, height } = fit(this.traceCanvas);
    this.panels = layOut(this.settings.layout, width, height, this.settings.scale);
    drawGrid(paper.context, width, height, this.settings.scale, colour);
    drawLabels(paper.context, this.panels, colour, this.supplied);
    context.clearRect(0, 0, width, height);
    const widest = Math.max(...this.panels.map(panel => panel.width));
    const samples = Math.floor((widest / this.pixelsPerSecond) * this.tape.rate);
    this.colour = colour;
    this.drawn = Math.max(this.tape.begin, this.tape.end - samples);
    this.advance();
  }

  // Moves the pen on to the newest sample.
  advance() {
    const { tape } = this;
    if (!this.panels || tape.end <= this.drawn || !tape.rate) return;
    const context = this.traceCanvas.getContext('2d');
    const from = Math.max(this.drawn, tape.begin + 1);
    for (const band of this.bands()) this.clearAhead(context, band, from);
    context.strokeStyle = this.colour.trace;
    context.lineWidth = 1.3;
    context.lineJoin = 'round';
    for (const panel of this.panels) this.drawPanel(context, panel, from);
    this.drawn = tape.end;
  }

  // Panels one above the other that sweep together; their traces may overlap.
  bands() {
    const bands = [];
    for (const panel of this.panels) {
      const last = bands.find(band => band.left === panel.left && band.width === panel.width);
      if (last) last.height = panel.top + panel.height - last.top;
      else bands.push({ left: panel.left, width: panel.width, top: panel.top, height: panel.height });
    }
    return bands;
  }

  offsetOf(number, width) { return ((number / this.tape.rate) * this.pixelsPerSecond) % width; }

  clearAhead(context, band, from) {
    const begin = this.offsetOf(from, band.width);
    const length = ((this.tape.end - from) / this.tape.rate) * this.pixelsPerSecond + gapMillimetres * this.settings.scale;
    if (length >= band.width) {
      context.clearRect(band.left, band.top, band.width, band.height);
      return;
    }
    const left = Math.min(begin + penPixels, band.width);
    const right = Math.min(begin + length, band.width);
    context.clearRect(band.left + left, band.top, right - left, band.height);
    context.clearRect(band.left, band.top, begin + length - right, band.height);
  }

  drawPanel(context, panel, from) {
    const { tape } = this;
    const yOf = number => panel.base - tape.at(panel.lead, number) * this.pixelsPerMillivolt;
    context.save();
    context.beginPath();
    const band = this.bands().find(one => one.left === panel.left && one.width === panel.width);
    context.rect(panel.left, band.top, panel.width, band.height);
    context.clip();
    context.beginPath();
    // A panel holds one sweep, less than that of the widest one.
    const fitting = Math.floor((panel.width / this.pixelsPerSecond - gapMillimetres / this.settings.speed) * tape.rate);
    const previous = Math.max(from - 1, tape.begin, tape.end - fitting);
    let x = this.offsetOf(previous, panel.width);
    context.moveTo(panel.left + x, yOf(previous));
    for (let number = previous + 1; number < tape.end; ++number) {
      const next = this.offsetOf(number, panel.width);
      if (next < x) {
        context.moveTo(panel.left + next, yOf(number));
      } else {
        context.lineTo(panel.left + next, yOf(number));
      }
      x = next;
    }
    context.stroke();
    context.restore();
  }
}

// A sheet of the last seconds, for printing: 3x4 and a rhythm strip at true scale.
export function drawSheet(canvas, tape, settings, widthMillimetres, heightMillimetres) {
  const scale = 10; // pixels per millimetre; on paper there are 254 to the inch
  canvas.width = widthMillimetres * scale;
  canvas.height = heightMillimetres * scale;
  const context = canvas.getContext('2d');
  const colour = { paper: '#fff', grid: '#f6d5d0', strong: '#e3a69d', ink: '#000', quiet: '#666', trace: '#000' };
  drawGrid(context, canvas.width, canvas.height, scale, colour);
  const panels = layOut('3x4', canvas.width, canvas.height, scale);
  context.font = '600 34px sans-serif';
  context.textBaseline = 'top';
  context.fillStyle = '#000';
  const seconds = width => width / scale / settings.speed;
  const begin = Math.max(tape.begin, tape.end - Math.floor(seconds(canvas.width) * tape.rate));
  context.strokeStyle = '#000';
  context.lineWidth = 2.5;
  for (const panel of panels) {
    context.fillText(leadNames[panel.lead], panel.left + 12, panel.top + 10);
    const first = begin + Math.floor(seconds(panel.left) * tape.rate);
    const last = Math.min(tape.end, first + Math.floor(seconds(panel.width) * tape.rate));
    context.beginPath();
    for (let number = first; number < last; ++number) {
      const x = panel.left + ((number - first) / tape.rate) * settings.speed * scale;
      const y = panel.base - tape.at(panel.lead, number) * settings.gain * scale;
      number === first ? context.moveTo(x, y) : context.lineTo(x, y);
    }
    context.stroke();
  }
}
