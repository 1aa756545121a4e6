// The time from the moment at which a frame leaves the simulator's outputs until it is drawn.
// Prints the figures; they are judged by people, since a busy machine gives other ones.
//
// The emulated simulator reports how many frames have left; the page, when it received each piece
// of the stream and when it had drawn it. Both use the clock of the same machine.
const fs = require('fs');
const net = require('net');
const { chromium } = require('playwright-core');

const [, , url, scratch] = process.argv;
const seconds = 30;
const rate = 1000;
const now = () => performance.timeOrigin + performance.now();

function writeRecord() {
  fs.writeFileSync(`${scratch}/still.hea`, `still 1 ${rate} ${(seconds + 30) * rate}\nstill.dat 16 200/mV 16 0 0 0 0 I\n`);
  fs.writeFileSync(`${scratch}/still.dat`, Buffer.alloc((seconds + 30) * rate * 2));
}

// Sends a line to the simulator's control socket and returns its reply.
function framesLeft() {
  return new Promise((resolve, reject) => {
    const began = now();
    const line = net.connect(`${scratch}/control`, () => line.write('left\n'));
    line.once('data', answer => { line.end(); resolve({ began, ended: now(), frames: Number(answer) }); });
    line.once('error', reject);
  });
}

// Hooks into the page: records each piece of the stream by its first sample, and the end of the
// animation frame that follows its drawing.
function watch() {
  const clock = () => performance.timeOrigin + performance.now();
  window.pieces = [];
  const { parse } = JSON;
  JSON.parse = text => {
    const value = parse(text);
    if (value && value.leads && value.position !== undefined) {
      window.pieces.push({ first: Math.round(value.position * value.rate), count: value.leads[0].length, came: clock() });
    }
    return value;
  };
  const { stroke } = CanvasRenderingContext2D.prototype;
  CanvasRenderingContext2D.prototype.stroke = function (...path) {
    stroke.apply(this, path);
    if (this.canvas.id !== 'trace') return;
    const drawn = window.pieces.filter(piece => !piece.isDrawn);
    for (const piece of drawn) piece.isDrawn = true;
    if (drawn.length) requestAnimationFrame(() => { for (const piece of drawn) piece.shown = clock(); });
  };
  window.screenFrames = [];
  const count = time => { window.screenFrames.push(time); requestAnimationFrame(count); };
  requestAnimationFrame(count);
}

// A line fitted to the marks: when frame n left.
function departures(marks) {
  const mean = of => marks.reduce((sum, mark) => sum + of(mark), 0) / marks.length;
  const time = mark => (mark.began + mark.ended) / 2;
  const frames = mean(mark => mark.frames), moment = mean(time);
  const slope = mean(mark => (mark.frames - frames) * (time(mark) - moment)) / mean(mark => (mark.frames - frames) ** 2);
  return frame => moment + (frame - frames) * slope;
}

const quantile = (values, share) => values[Math.min(values.length - 1, Math.floor(values.length * share))];

function print(name, values) {
  values.sort((a, b) => a - b);
  console.log(`${name}: median ${quantile(values, 0.5).toFixed(0)} ms, 99 % ${quantile(values, 0.99).toFixed(0)} ms, longest ${values[values.length - 1].toFixed(0)} ms`);
}

async function main() {
  writeRecord();
  const browser = await chromium.launch({ executablePath: '/usr/bin/chromium', args: ['--no-sandbox', '--disable-gpu'] });
  const page = await browser.newPage({ viewport: { width: 1280, height: 800 } });
  await page.addInitScript(watch);
  await page.goto(url);
  await page.waitForFunction(() => document.querySelector('.lamp').className.includes('on'));
  await page.evaluate(() => fetch('/api/play', { method: 'POST', headers: { 'Content-Type': 'application/json' }, body: '{"material":"still.hea"}' }));
  await page.waitForTimeout(5000);
  const marks = [];
  const end = now() + seconds * 1000;
  while (now() < end) {
    marks.push(await framesLeft());
    await page.waitForTimeout(100);
  }
  const { pieces, screen } = await page.evaluate(() => ({ pieces: window.pieces.filter(piece => piece.shown), screen: window.screenFrames }));
  await browser.close();
  const quickest = marks.sort((a, b) => a.ended - a.began - (b.ended - b.began)).slice(0, marks.length / 2);
  const leftAt = departures(quickest);
  const shown = [], came = [];
  for (const piece of pieces.filter(piece => piece.came > end - seconds * 1000)) {
    for (let i = 0; i < piece.count; ++i) {
      shown.push(piece.shown - leftAt(piece.first + i));
      came.push(piece.came - leftAt(piece.first + i));
    }
  }
  print('from the outputs to the page ', came);
  print('from the outputs to the pixel', shown);
  const late = screen.slice(1).filter((time, i) => time - screen[i] > 25).length;
  console.log(`frames of the screen that were dropped: ${late} of ${screen.length}`);
}

main().catch(error => { console.error(error); process.exit(1); });
