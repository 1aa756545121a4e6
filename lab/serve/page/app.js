// The page: messages from the server update the display, and controls send orders.
import { follow, get, post, storedToken, storeToken } from './api.js';
import { fit, colours, storedScale, storeScale, forgetScale } from './paper.js';
import { Tape, Sweep, drawSheet } from './trace.js';
import { Caliper } from './caliper.js';
import { Chooser, clockText } from './chooser.js';

const find = id => document.getElementById(id);
const tape = new Tape();
const sweep = new Sweep(tape, find('paper'), find('trace'));
const caliper = new Caliper(find('screen'), [find('handle-a'), find('handle-b')], find('reading'), () => drawOverlay());
const chooser = new Chooser(find, order => give('/api/play', order));

let state = null;
let lastOrder = null; // the last order of this page, to play it again
let isFrozen = false;
let frozenPosition = 0;
let isStale = false;
let stateTime = 0;
const isCalm = matchMedia('(prefers-reduced-motion: reduce)');

// ---- Orders -------------------------------------------------------------------------------------

let refusal = ''; // of the last order of this page

const sentence = ({ where, problem, cure }) => [where ? `${where}: ${problem}` : problem, cure].filter(Boolean).join(' ');

function pendingText({ order, material }) {
  if (order === 'play') return `Starting ${material.replace('builtin:', '')} …`;
  return order === 'stop' ? 'Stopping …' : 'Switching the noise …';
}

// The state reports the orders that are still under way, and one that failed after its answer.
function showMessage() {
  const { orders = [], refused } = state || {};
  const text = orders.length ? orders.map(pendingText).join(' ') : refusal || (refused ? sentence(refused) : '');
  if (find('message').textContent !== text) find('message').textContent = text;
  find('message').classList.toggle('fine', orders.length > 0);
}

async function give(path, body) {
  refusal = '';
  try {
    if (path === '/api/play') lastOrder = body;
    takeState(await post(path, body), true);
  } catch (error) {
    if (error.status === 401) await askToken(error.message);
    else refusal = sentence({ problem: error.message, cure: error.cure });
    showMessage();
  }
}

const playing = () => state && state.output.state === 'playing';
const starting = () => state && state.orders.some(({ order }) => order === 'play');
const material = () => (playing() ? state.output.material : lastOrder && lastOrder.material) || (state && state.last && state.last.material);

function orderFrom(start, changes) {
  const order = lastOrder && lastOrder.material === material() ? { ...lastOrder } : { material: material() };
  if (playing()) order.loop = state.output.loop;
  if (playing() && state.output.noiseChosen) order.noise = state.output.noiseChosen;
  return { ...order, start, ...changes };
}

function playOrStop() {
  if (state && state.run) return;
  if (playing() || starting()) give('/api/stop', {});
  else if (material()) give('/api/play', orderFrom(lastOrder ? lastOrder.start || 0 : 0));
}

// Looping is fixed when a play starts, so the play starts again from its present position.
function switchLoop() {
  if (state && state.run) return;
  const isOn = !(playing() ? state.output.loop : lastOrder && lastOrder.loop);
  if (playing()) give('/api/play', orderFrom(Math.floor(state.output.position), { loop: isOn }));
  else if (lastOrder) lastOrder.loop = isOn;
  showState();
}

function switchNoise() {
  if (playing() && !state.run) give('/api/noise', { on: state.output.noise === false });
}

// ---- State --------------------------------------------------------------------------------------

function takeState(next, isAnswer) {
  const before = state;
  state = isAnswer && before ? { ...next, viewers: before.viewers } : next;
  stateTime = performance.now();
  isStale = false;
  const isOther = !before || before.output.material !== next.output.material || before.output.leads.join() !== next.output.leads.join();
  if (isOther && next.output.leads.length) {
    sweep.supplied = next.output.leads;
    sweep.redraw();
  }
  showState();
}

function showSimulator() {
  const { connected, model, serial, device, bits, calibrated, calibration } = state.simulator;
  const lamp = document.querySelector('.lamp');
  document.body.classList.toggle('stale', isStale);
  lamp.className = 'lamp ' + (isStale || !connected ? 'off' : 'on');
  const converters = bits === 16 ? '16 bits' : `12 bits, ${calibrated ? 'calibrated' : 'not calibrated'}`;
  find('simulator-text').textContent = isStale ? (state.run && state.run.outcome ? 'The server has ended because the plan is over' : 'The server does not answer')
    : connected ? `${model} ${serial} at ${device}, ${converters}` : 'No simulator';
  find('findings').hidden = !state.findings.length;
  find('findings').replaceChildren(...state.findings.flatMap(finding => [
    paragraph('found', `${finding.port ? finding.port + ': ' : ''}${finding.found}`),
    ...(finding.cure ? [paragraph('cure', finding.cure)] : []),
  ]));
}

function paragraph(className, text) {
  return Object.assign(document.createElement('p'), { className, textContent: text });
}

function showState() {
  if (!state) return;
  showSimulator();
  const { output, last, orders } = state;
  document.title = playing() ? `${output.name} – RAVO` : 'RAVO';
  find('title').textContent = playing() ? output.name : last ? `${last.material.replace('builtin:', '')}: ${last.result}` : 'Nothing plays';
  find('detail').textContent = playing() ? detailText(output)
    : last ? `${clockText(last.seconds)} left the outputs.` : 'Choose a record, and it appears here as it leaves the outputs.';
  find('clock').textContent = !playing() ? '–' : output.measuredRate ? `${output.measuredRate.toFixed(2)}/s` : `${output.rate}/s`;
  find('delays').textContent = playing() ? output.delays : '–';
  find('viewers').textContent = state.viewers;
  find('stop').disabled = !playing() && !starting();
  find('play').disabled = !material() || !state.simulator.connected || Boolean(playing() || orders.length);
  find('loop').setAttribute('aria-pressed', Boolean(playing() ? output.loop : lastOrder && lastOrder.loop));
  find('noise').disabled = !playing() || !output.noiseSwitchable;
  find('noise').setAttribute('aria-pressed', Boolean(playing() && output.noise !== false));
  find('seek').disabled = !playing() || output.duration === null;
  showMessage();
  showPlace();
  showRun();
}

function detailText(output) {
  const parts = [`${output.rate} samples per second`, `from second ${output.start}`];
  if (output.source === 'stand-in') parts.push('a stand-in for the licensed record');
  if (output.loop) parts.push('loops');
  if (output.noise !== false) parts.push(`noise ${output.noise}`);
  return parts.join(', ');
}

// ---- The test plan ------------------------------------------------------------------------------

function showRun() {
  const run = state.run;
  find('run').hidden = !run;
  for (const id of ['choose', 'play', 'stop', 'loop', 'noise']) find(id).hidden = Boolean(run);
  if (!run) return;
  find('seek').disabled = true;
  find('run-title').textContent = run.title || 'Test plan';
  find('run-text').textContent = runText(run);
  showSteps(run);
}

function runText(run) {
  const counts = ['passed', 'failed', 'error'].filter(outcome => run.counts[outcome]).map(outcome => `${run.counts[outcome]} ${outcome}`);
  if (run.outcome) return `The plan is over: ${run.outcome} (${[`${run.count} steps`, ...counts].join(', ')}).`;
  const place = run.current === null ? 'Checking the material' : `Step ${run.current + 1} of ${run.count}`;
  const left = run.left ? [`${clockText(run.left)} left, until ${new Date(Date.now() + run.left * 1000).toLocaleTimeString()}`] : [];
  return [place, ...counts, ...left].join(', ');
}

let shownSteps = '';
function showSteps(run) {
  const now = JSON.stringify([run.first, run.current, run.steps]);
  if (now === shownSteps) return;
  shownSteps = now;
  find('run-steps').replaceChildren(...run.steps.map((step, index) => {
    const row = document.createElement('tr');
    const isCurrent = run.first + index === run.current;
    if (isCurrent) row.setAttribute('aria-current', 'step');
    row.insertCell().textContent = run.first + index + 1;
    row.insertCell().textContent = step.name;
    const outcome = row.insertCell();
    outcome.textContent = step.outcome || (isCurrent ? 'under way' : '');
    outcome.className = step.outcome;
    row.insertCell().textContent = step.message;
    return row;
  }));
  const current = find('run-steps').querySelector('[aria-current]');
  if (current) find('run-list').scrollTop = current.offsetTop - find('run-list').clientHeight / 2;
}

// ---- The place in the record --------------------------------------------------------------------

// Between two states the position advances by itself, but not for long: nothing is known of a server
// that is silent.
const longestGuess = 2; // seconds

function positionNow() {
  if (!playing()) return 0;
  const { position, duration, loop, start } = state.output;
  const now = position + Math.min((performance.now() - stateTime) / 1000, longestGuess);
  if (duration === null || now <= duration) return now;
  return loop ? start + ((now - start) % Math.max(duration - start, 0.001)) : duration;
}

function showPlace() {
  const isPlaying = playing();
  const position = positionNow();
  const duration = isPlaying ? state.output.duration : null;
  find('place').hidden = !isPlaying;
  find('position').textContent = clockText(position);
  find('duration').textContent = duration === null ? '' : 'of ' + clockText(duration);
  if (document.activeElement !== find('seek')) {
    find('seek').max = duration || 1;
    find('seek').value = position;
  }
  drawMap(position, duration);
}

// ---- Drawing ------------------------------------------------------------------------------------

const overview = { material: null, data: null };

async function loadOverview() {
  const wanted = playing() && state.output.duration !== null ? state.output.material : null;
  if (overview.material === wanted) return;
  overview.material = wanted;
  overview.data = null;
  if (!wanted) return;
  try {
    const data = await get(`/api/overview?material=${encodeURIComponent(wanted)}`);
    if (overview.material === wanted) overview.data = data;
  } catch { /* the bar alone then */ }
}

function drawMap(position, duration) {
  const { context, width, height } = fit(find('map'));
  const colour = colours();
  context.clearRect(0, 0, width, height);
  if (overview.data) {
    const { least, most } = overview.data;
    const range = Math.max(...most.map(Math.abs), ...least.map(Math.abs), 0.1);
    context.fillStyle = colour.line;
    for (let i = 0; i < most.length; ++i) {
      const top = height / 2 - (most[i] / range) * (height / 2);
      const bottom = height / 2 - (least[i] / range) * (height / 2);
      context.fillRect((i / most.length) * width, top, width / most.length + 0.5, Math.max(1, bottom - top));
    }
  }
  if (!duration) return;
  const x = Math.min(1, position / duration) * width;
  context.fillStyle = colour.accent;
  context.globalAlpha = 0.16;
  context.fillRect(0, 0, x, height);
  context.globalAlpha = 1;
  context.fillRect(x - 1, 0, 2, height);
  context.fillRect((Math.min(state.output.start, duration) / duration) * width - 1, height - 8, 2, 8);
}

function drawOverlay() {
  const { context, width, height } = fit(find('overlay'));
  context.clearRect(0, 0, width, height);
  if (caliper.isShown) caliper.show(context, width, height, sweep, colours());
}

function redraw() {
  sweep.redraw();
  drawOverlay();
  if (state) showPlace();
}

let lastPlace = 0;
function frame(time) {
  if (!isFrozen && (!isCalm.matches || time - lastPlace > 1000)) sweep.advance();
  if (time - lastPlace > (isCalm.matches ? 1000 : 100)) {
    lastPlace = time;
    showPlace();
    loadOverview();
  }
  requestAnimationFrame(frame);
}

function takeSamples(event) {
  if (event.rate !== tape.rate) {
    tape.reset(event.rate);
    if (!isFrozen) sweep.redraw();
  }
  tape.add(event);
}

// What is frozen stays as it is, however long and at whatever gain it is looked at.
function freeze(on) {
  isFrozen = on;
  frozenPosition = positionNow();
  sweep.tape = on ? tape.copy() : tape;
  find('freeze').setAttribute('aria-pressed', on);
  caliper.isShown = on;
  drawOverlay();
  if (!on) sweep.redraw();
}

function printSheet() {
  const output = state ? state.output : null;
  drawSheet(find('sheet-canvas'), sweep.tape, sweep.settings, 277, 170);
  const what = playing() ? `${output.name}, at ${clockText(isFrozen ? frozenPosition : positionNow())}` : state && state.last ? state.last.material : '';
  find('sheet-text').textContent = `RAVO  ${what}   ${sweep.settings.speed} mm/s  ${sweep.settings.gain} mm/mV   ${new Date().toLocaleString()}\n` +
    (state && state.simulator.connected ? `${state.simulator.model} ${state.simulator.serial}` : '');
}

// ---- Settings -----------------------------------------------------------------------------------

function takeSettings() {
  sweep.settings = {
    layout: find('layout').value, gain: Number(find('gain').value), speed: Number(find('speed').value),
    scale: storedScale(),
  };
  for (const id of ['layout', 'gain', 'speed']) localStorage.setItem('ravo-' + id, find(id).value);
  redraw();
}

function restoreSettings() {
  if (matchMedia('(max-width:640px)').matches) find('layout').value = '6x2';
  for (const id of ['layout', 'gain', 'speed']) {
    const value = localStorage.getItem('ravo-' + id);
    if (value && [...find(id).options].some(option => option.value === value)) find(id).value = value;
  }
  find('theme').value = localStorage.getItem('ravo-theme') || '';
  showTheme();
}

function showTheme() {
  const chosen = find('theme').value;
  const isDark = chosen ? chosen === 'dark' : matchMedia('(prefers-color-scheme: dark)').matches;
  document.documentElement.dataset.theme = isDark ? 'dark' : 'light';
  document.documentElement.style.colorScheme = isDark ? 'dark' : 'light';
}

function showScale() {
  find('scale').value = storedScale();
  find('ruler').style.width = storedScale() * 100 + 'px';
  find('scale-text').textContent = `${storedScale().toFixed(3)} pixels to the millimetre`;
}

function change(id, step) {
  const select = find(id);
  select.selectedIndex = Math.min(select.length - 1, Math.max(0, select.selectedIndex + step));
  takeSettings();
}

let asking = null;
function askToken(text) {
  asking = asking || new Promise(resolve => {
    find('token-text').textContent = storedToken() ? text : '';
    find('token').value = '';
    find('ask-token').showModal();
    find('ask-token').addEventListener('close', () => { storeToken(find('token').value.trim().replace(/[^!-~]/g, '?')); asking = null; resolve(); }, { once: true });
  });
  return asking;
}

// ---- Beginning ----------------------------------------------------------------------------------

const keys = {
  ' ': playOrStop, c: () => { if (!state || !state.run) chooser.open(); }, f: () => freeze(!isFrozen), l: switchLoop, n: switchNoise,
  '+': () => change('gain', 1), '-': () => change('gain', -1),
  1: () => { find('layout').value = '3x4'; takeSettings(); },
  2: () => { find('layout').value = '6x2'; takeSettings(); },
  3: () => { find('layout').value = '12x1'; takeSettings(); },
};

function takeKey(event) {
  const isTyping = event.target.closest('input:not([type=range]),select,dialog[open],.handle');
  const isPress = event.key === ' ' && event.target.closest('button');
  if (isTyping || isPress || event.ctrlKey || event.metaKey || event.altKey || !keys[event.key]) return;
  event.preventDefault();
  keys[event.key]();
}

function listen() {
  find('choose').addEventListener('click', () => chooser.open());
  find('play').addEventListener('click', playOrStop);
  find('stop').addEventListener('click', () => give('/api/stop', {}));
  find('loop').addEventListener('click', switchLoop);
  find('noise').addEventListener('click', switchNoise);
  find('freeze').addEventListener('click', () => freeze(!isFrozen));
  find('print').addEventListener('click', () => window.print());
  find('seek').addEventListener('change', () => { find('seek').blur(); give('/api/play', orderFrom(Math.floor(find('seek').value))); });
  for (const id of ['layout', 'gain', 'speed']) find(id).addEventListener('change', takeSettings);
  find('open-settings').addEventListener('click', () => { find('settings').showModal(); showScale(); });
  find('scale').addEventListener('input', () => { storeScale(find('scale').value); showScale(); takeSettings(); });
  find('scale-reset').addEventListener('click', () => { forgetScale(); showScale(); takeSettings(); });
  find('theme').addEventListener('change', () => { localStorage.setItem('ravo-theme', find('theme').value); showTheme(); redraw(); });
  matchMedia('(prefers-color-scheme: dark)').addEventListener('change', () => { showTheme(); redraw(); });
  window.addEventListener('keydown', takeKey);
  window.addEventListener('beforeprint', printSheet);
  new ResizeObserver(redraw).observe(find('screen'));
}

restoreSettings();
listen();
takeSettings();
requestAnimationFrame(frame);
follow({
  state: next => takeState(next),
  samples: takeSamples,
  skipped: () => { tape.reset(tape.rate); if (!isFrozen) sweep.redraw(); },
  lost: async error => {
    isStale = true;
    if (state) showState();
    else find('simulator-text').textContent = 'The server does not answer';
    if (error && error.status === 401) await askToken(error.message);
  },
});
