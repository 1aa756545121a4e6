// The dialog in which a record is found and looked at before it plays.
import { get } from './api.js';
import { fit, colours, drawGrid } from './paper.js';

const waveforms = ['sine', 'triangle', 'square', 'rectangle-pulse', 'triangle-pulse', 'calibration', 'staircase'];
const withoutFrequency = ['staircase'];

export function clockText(seconds) {
  if (seconds === null || !isFinite(seconds)) return 'no end';
  const whole = Math.floor(seconds);
  const hours = Math.floor(whole / 3600);
  const minutes = Math.floor(whole / 60) % 60;
  const rest = (whole % 60) + Math.floor((seconds - whole) * 10) / 10;
  return (hours ? hours + ':' + String(minutes).padStart(2, '0') : String(minutes)) + ':' + rest.toFixed(1).padStart(4, '0');
}

export class Chooser {
  constructor(find, play) {
    this.find = find;
    this.under = '';
    this.entries = [];
    this.selected = null;
    this.loads = 0; // to tell the answer to the last question from a late one
    this.previews = 0;
    this.dialog = find('chooser');
    find('search').addEventListener('input', () => this.show());
    find('search').addEventListener('keydown', event => this.key(event));
    find('list').addEventListener('keydown', event => this.key(event));
    find('start').addEventListener('change', () => this.preview());
    find('chooser-close').addEventListener('click', () => this.dialog.close());
    find('chooser-play').addEventListener('click', () => { this.dialog.close(); play(this.order()); });
  }

  async open() {
    if (!this.dialog.open) this.dialog.showModal();
    this.find('search').focus();
    await this.load(this.under);
  }

  async load(under) {
    const number = ++this.loads;
    this.find('folder').textContent = 'Reading the folder';
    try {
      const list = await get('/api/materials' + (under ? '?under=' + encodeURIComponent(under) : ''));
      if (number !== this.loads) return;
      this.under = list.under;
      this.entries = this.entriesOf(list);
      this.find('folder').textContent = (list.under || 'The folder that is served') + (list.cut ? ', only in part' : '');
      if (list.noises) this.takeNoises(list.noises);
    } catch (error) {
      if (number !== this.loads) return;
      this.entries = [];
      this.find('folder').textContent = error.message;
    }
    this.show();
  }

  entriesOf(list) {
    const entries = [];
    if (list.under) entries.push({ folder: list.under.split('/').slice(0, -1).join('/'), name: '..', group: 'Folders' });
    for (const folder of list.folders) entries.push({ folder: folder.under, name: folder.name + '/', group: 'Folders' });
    const groups = { file: 'Records', licensed: 'Built-in records', 'stand-in': 'Built-in records (stand-ins)' };
    for (const record of list.materials) entries.push({ ...record, group: groups[record.source] });
    if (!list.under) for (const name of waveforms) entries.push({ material: name, name, source: 'waveform', duration: null, rate: 1000, leads: [], group: 'Waveforms' });
    return entries;
  }

  takeNoises(noises) {
    const select = this.find('noise-name');
    if (select.length > 1) return;
    for (const noise of noises) select.add(new Option(noise.name, noise.name));
  }

  show() {
    const words = this.find('search').value.toLowerCase().split(/\s+/).filter(Boolean);
    this.shown = this.entries.filter(entry => {
      const text = `${entry.name} ${entry.group} ${(entry.leads || []).join(' ')}`.toLowerCase();
      return words.every(word => text.includes(word));
    });
    const list = this.find('list');
    list.replaceChildren();
    let group = null;
    this.shown.forEach((entry, index) => {
      if (entry.group !== group) {
        group = entry.group;
        list.append(Object.assign(document.createElement('div'), { className: 'group-name', textContent: group, role: 'presentation' }));
      }
      list.append(this.rowOf(entry, index));
    });
    if (!this.shown.length) list.append(Object.assign(document.createElement('div'), { className: 'group-name', textContent: 'Nothing of that name here' }));
    if (!this.shown.includes(this.selected)) this.select(null);
  }

  rowOf(entry, index) {
    const row = document.createElement('div');
    row.role = 'option';
    row.id = 'option-' + index;
    row.setAttribute('aria-selected', entry === this.selected);
    const texts = entry.folder !== undefined ? [entry.name]
      : [entry.name, clockText(entry.duration), entry.rate + '/s', entry.leads.length === 12 ? '12 leads' : entry.leads.join(' ')];
    if (entry.folder !== undefined) row.className = 'folder';
    row.append(...texts.map(text => Object.assign(document.createElement('span'), { textContent: text, title: text })));
    row.addEventListener('click', () => this.choose(entry));
    row.addEventListener('dblclick', () => { if (entry.material) this.find('chooser-play').click(); });
    return row;
  }

  choose(entry) {
    if (entry.folder !== undefined) {
      this.find('search').value = '';
      this.load(entry.folder);
    } else {
      this.select(entry);
    }
  }

  select(entry) {
    const isOther = entry !== this.selected;
    this.selected = entry;
    const list = this.find('list');
    [...list.querySelectorAll('[role=option]')].forEach((row, index) => row.setAttribute('aria-selected', this.shown[index] === entry));
    const row = entry && list.querySelector('[aria-selected=true]');
    if (row) row.scrollIntoView({ block: 'nearest' });
    row ? list.setAttribute('aria-activedescendant', row.id) : list.removeAttribute('aria-activedescendant');
    const isPlayable = Boolean(entry && entry.material);
    this.find('chooser-play').disabled = !isPlayable;
    for (const field of document.querySelectorAll('.wave')) field.hidden = !(isPlayable && entry.source === 'waveform' && !withoutFrequency.includes(entry.material));
    if (isOther) {
      this.find('start').value = 0;
      this.preview();
    }
  }

  key(event) {
    const index = this.shown.indexOf(this.selected);
    if (event.key === 'ArrowDown' || event.key === 'ArrowUp') {
      event.preventDefault();
      const next = Math.min(this.shown.length - 1, Math.max(0, index + (event.key === 'ArrowDown' ? 1 : -1)));
      if (this.shown[next]) this.select(this.shown[next]);
    } else if (event.key === 'Enter') {
      event.preventDefault();
      const entry = this.selected || this.shown[0];
      if (!entry) return;
      if (entry === this.selected && entry.material) this.find('chooser-play').click();
      else this.choose(entry);
    }
  }

  async preview() {
    const number = ++this.previews;
    const entry = this.selected;
    const canvas = this.find('preview');
    const colour = colours();
    const { context, width, height } = fit(canvas);
    drawGrid(context, width, height, height / 20, colour);
    this.find('preview-text').textContent = '';
    if (!entry || !entry.material) return;
    try {
      const start = Number(this.find('start').value) || 0;
      const samples = await get(`/api/preview?material=${encodeURIComponent(entry.material)}&start=${start}&seconds=6`);
      if (number !== this.previews) return;
      const lead = [1, 0, 7, 6, 8, 9, 10, 11].find(number => samples.leads[number].some(value => value !== 0)) ?? 1;
      const row = samples.leads[lead];
      const size = (height * 0.45) / Math.max(2, ...row.map(Math.abs));
      context.strokeStyle = colour.trace;
      context.lineWidth = 1.2;
      context.beginPath();
      row.forEach((value, i) => {
        const y = height / 2 - value * size;
        i ? context.lineTo((i / row.length) * width, y) : context.moveTo(0, y);
      });
      context.stroke();
      this.find('preview-text').textContent = `${entry.name}, from second ${start}` + (entry.source === 'stand-in' ? ', a stand-in for the licensed record' : '');
    } catch (error) {
      if (number === this.previews) this.find('preview-text').textContent = error.message + ' ' + (error.cure || '');
    }
  }

  // The body of a request to play.
  order() {
    const value = name => this.find(name).value;
    const order = { material: this.selected.material, start: Number(value('start')) || 0, loop: this.find('loop-wanted').checked };
    if (Number(value('seconds')) > 0) order.seconds = Number(value('seconds'));
    if (value('noise-name')) order.noise = value('noise-name');
    if (this.selected.source === 'waveform' && !withoutFrequency.includes(this.selected.material)) {
      order.frequency = Number(value('frequency'));
      order.amplitude = Number(value('amplitude'));
    }
    return order;
  }
}
