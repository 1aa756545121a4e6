// ECG paper: how large a millimetre is, where the leads stand, and the grid.

const cssMillimetre = 96 / 25.4;

export const leadNames = ['I', 'II', 'III', 'aVR', 'aVL', 'aVF', 'V1', 'V2', 'V3', 'V4', 'V5', 'V6'];

export const storedScale = () => Number(localStorage.getItem('ravo-scale')) || cssMillimetre;
export const storeScale = scale => localStorage.setItem('ravo-scale', scale);
export const forgetScale = () => localStorage.removeItem('ravo-scale');

// Rows of leads side by side; a row with one lead extends across the whole width.
const layouts = {
  '3x4': [[0, 3, 6, 9], [1, 4, 7, 10], [2, 5, 8, 11], [1]],
  '6x2': [[0, 6], [1, 7], [2, 8], [3, 9], [4, 10], [5, 11]],
  '12x1': leadNames.map((name, lead) => [lead]),
};

// Panels of one lead each: {lead, left, width, top, height, base}, in CSS pixels. `scale` is the
// pixels of a millimetre. Columns are equally wide, whole large squares, so that all leads sweep in
// step.
export function layOut(name, width, height, scale) {
  const rows = layouts[name];
  const rowHeight = height / rows.length;
  const large = 5 * scale;
  const panels = [];
  rows.forEach((leads, row) => {
    const columnWidth = leads.length > 1 ? Math.floor(width / leads.length / large) * large || width / leads.length : width;
    leads.forEach((lead, column) => {
      const left = column * columnWidth;
      panels.push({
        lead, left, width: columnWidth,
        top: row * rowHeight, height: rowHeight,
        base: Math.round((row + 0.5) * rowHeight),
      });
    });
  });
  return panels;
}

// A canvas with as many pixels as the screen has there; returns its context in CSS pixels.
export function fit(canvas, ratio = window.devicePixelRatio || 1) {
  const width = canvas.clientWidth;
  const height = canvas.clientHeight;
  const pixelWidth = Math.round(width * ratio);
  const pixelHeight = Math.round(height * ratio);
  if (canvas.width !== pixelWidth || canvas.height !== pixelHeight) {
    canvas.width = pixelWidth;
    canvas.height = pixelHeight;
  }
  const context = canvas.getContext('2d');
  context.setTransform(ratio, 0, 0, ratio, 0, 0);
  return { context, width, height, ratio };
}

export function colours() {
  const style = getComputedStyle(document.documentElement);
  const of = name => style.getPropertyValue('--' + name).trim();
  return { paper: of('paper'), grid: of('grid'), strong: of('grid-strong'), trace: of('trace'), ink: of('ink'), quiet: of('quiet'), mark: of('mark'), line: of('line'), accent: of('accent') };
}

// Small squares of 1 mm where they are wide enough to be seen, large ones of 5 mm.
export function drawGrid(context, width, height, scale, colour) {
  const lines = (step, style, lineWidth) => {
    context.strokeStyle = style;
    context.lineWidth = lineWidth;
    context.beginPath();
    for (let i = 0; i * step <= width; ++i) {
      context.moveTo(i * step, 0);
      context.lineTo(i * step, height);
    }
    for (let i = 0; i * step <= height; ++i) {
      context.moveTo(0, i * step);
      context.lineTo(width, i * step);
    }
    context.stroke();
  };
  context.fillStyle = colour.paper;
  context.fillRect(0, 0, width, height);
  if (scale >= 2.5) lines(scale, colour.grid, 0.5);
  lines(5 * scale, colour.strong, 0.8);
}

export function drawLabels(context, panels, colour, supplied) {
  context.font = '600 13px system-ui, "DejaVu Sans", sans-serif';
  context.textBaseline = 'top';
  for (const panel of panels) {
    const isFed = !supplied || supplied.length === 0 || supplied.includes(leadNames[panel.lead]);
    context.fillStyle = isFed ? colour.ink : colour.quiet;
    context.fillText(leadNames[panel.lead], panel.left + 5, panel.top + 4);
  }
}
