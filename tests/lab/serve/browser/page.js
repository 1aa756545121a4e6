// Every control of the page, the pixels of a trace, and what axe finds.
const assert = require('assert');
const fs = require('fs');
const net = require('net');
const { chromium } = require('playwright-core');

const url = process.argv[2];
const patience = 60000;

async function main() {
  const browser = await chromium.launch({ executablePath: '/usr/bin/chromium', args: ['--no-sandbox', '--disable-gpu'] });
  const page = await browser.newPage({ viewport: { width: 1280, height: 800 } });
  page.setDefaultTimeout(patience);
  const problems = [];
  page.on('pageerror', error => problems.push(error.message));
  page.on('console', message => { if (message.type() === 'error') problems.push(message.text()); });
  page.on('request', request => { if (!request.url().startsWith(url) && !request.url().startsWith('data:')) problems.push('foreign request ' + request.url()); });
  const state = () => page.evaluate(() => fetch('/api/state').then(answer => answer.json()));
  const until = async (isSo, what) => {
    const end = Date.now() + patience;
    for (;;) {
      const now = await state();
      if (isSo(now)) return now;
      assert(Date.now() < end, `${what}: ${JSON.stringify(now)}`);
      await page.waitForTimeout(100);
    }
  };
  const tell = fault => new Promise((resolve, reject) => {
    const socket = net.connect(process.argv[3] + '/control', () => socket.end(fault + '\n'));
    socket.on('data', () => {}).on('close', resolve).on('error', reject);
  });
  const axe = async where => {
    await page.evaluate(fs.readFileSync(require.resolve('axe-core/axe.min.js'), 'utf8') + ';0');
    const { violations } = await page.evaluate(() => axe.run());
    assert.deepStrictEqual(violations.map(v => v.id + ' ' + v.nodes.map(n => n.target)), [], where);
  };

  await page.goto(url);
  await until(now => now.simulator.connected, 'connected');
  await axe('the page');

  // By keyboard: choose the 2 mV square wave and play it.
  await page.keyboard.press('c');
  await page.waitForSelector('#list [role=option]');
  await page.fill('#search', 'cal20000');
  await page.keyboard.press('ArrowDown');
  await page.waitForFunction(() => document.getElementById('preview-text').textContent.startsWith('CAL20000'));
  await axe('the chooser');
  await page.check('#loop-wanted');
  await page.click('#chooser-play');
  const playing = await until(now => now.output.state === 'playing', 'plays');
  assert.strictEqual(playing.output.material, 'builtin:CAL20000');
  assert.strictEqual(playing.output.loop, true);
  await page.waitForFunction(() => document.getElementById('title').textContent === 'CAL20000');

  // The trace of lead I extends as far from its base as 5 mm/mV implies, and stays in its row.
  await page.selectOption('#gain', '5');
  await page.waitForTimeout(4000);
  await page.keyboard.press('f');
  const reach = await page.evaluate(() => {
    const canvas = document.getElementById('trace');
    const ratio = canvas.width / canvas.clientWidth;
    const row = canvas.height / 4;
    const columns = canvas.width / 8;
    const pixels = canvas.getContext('2d').getImageData(0, 0, Math.floor(columns), canvas.height).data;
    let top = Infinity, bottom = -Infinity;
    for (let y = 0; y < row; ++y) for (let x = 0; x < Math.floor(columns); ++x) {
      if (pixels[(y * Math.floor(columns) + x) * 4 + 3] > 128) { top = Math.min(top, y); bottom = Math.max(bottom, y); }
    }
    return (bottom - top) / ratio / (96 / 25.4);
  });
  const samples = await page.evaluate(() => fetch('/api/preview?material=builtin:CAL20000&seconds=4').then(answer => answer.json()));
  const span = 5 * (Math.max(...samples.leads[0]) - Math.min(...samples.leads[0]));
  assert(Math.abs(reach - span) < 1, `the trace spans ${reach} mm, the samples ${span} mm`);

  // The caliper: two points 0.1 of the width apart.
  const reading = await page.textContent('#reading');
  const width = await page.evaluate(() => document.getElementById('screen').clientWidth);
  const expected = Math.round(0.1 * width / (25 * 96 / 25.4) * 1000);
  assert(Math.abs(parseInt(reading, 10) - expected) <= 1, `${reading}, not ${expected} ms`);

  // What is frozen stays, at another gain and back, while the play goes on.
  const picture = () => page.evaluate(() => document.getElementById('trace').toDataURL());
  await page.selectOption('#gain', '20');
  await page.selectOption('#gain', '10');
  const frozen = await picture();
  await page.waitForTimeout(1300); // not a whole number of the wave's periods
  await page.selectOption('#gain', '5');
  assert.notStrictEqual(await picture(), frozen);
  await page.selectOption('#gain', '10');
  assert.strictEqual(await picture(), frozen);
  await page.keyboard.press('f');
  assert.strictEqual(await page.isVisible('#reading'), false);

  for (const layout of ['6x2', '12x1', '3x4']) await page.selectOption('#layout', layout);
  for (const gain of ['5', '20', '10']) await page.selectOption('#gain', gain);
  for (const speed of ['12.5', '50', '25']) await page.selectOption('#speed', speed);

  await page.click('#loop');
  await until(now => now.output.state === 'playing' && now.output.loop === false, 'the loop is off');
  await page.click('#stop');
  await until(now => now.output.state === 'idle', 'stops');
  await page.waitForFunction(() => document.getElementById('stop').disabled);
  await page.keyboard.press(' ');
  await until(now => now.output.state === 'playing', 'plays again');
  await page.click('#open-settings');
  await page.selectOption('#theme', 'dark');
  await page.click('#settings .strong');
  await axe('the page in the dark');
  await page.setViewportSize({ width: 360, height: 740 });
  assert.strictEqual(await page.evaluate(() => document.documentElement.scrollWidth), 360);
  await axe('a narrow page');

  // The stop of the previous play waits for a request that never comes: the page is answered first,
  // and learns later that its play was refused.
  await page.evaluate(() => fetch('/api/play', { method: 'POST', headers: { 'Content-Type': 'application/json' }, body: JSON.stringify({ material: 'builtin:CAL20000', loop: true }) }));
  await until(now => now.output.loop && !now.pending, 'plays in a loop');
  await page.waitForFunction(() => document.getElementById('loop').getAttribute('aria-pressed') === 'true');
  await tell('ask off');
  await page.evaluate(() => { const seek = document.getElementById('seek'); seek.value = 3; seek.dispatchEvent(new Event('change')); });
  await page.waitForFunction(() => document.getElementById('message').textContent.includes('has stopped asking for data'));

  // Another client's noise can be switched here, too.
  await tell('ask on');
  await until(now => now.output.state === 'idle' || !now.output.silent, 'asks again');
  await page.evaluate(() => fetch('/api/play', { method: 'POST', headers: { 'Content-Type': 'application/json' }, body: JSON.stringify({ material: 'builtin:CAL20000', loop: true, noise: '50HZ' }) }));
  await until(now => now.output.noise === '50HZ' && !now.pending, 'plays with noise');
  await page.waitForFunction(() => document.getElementById('noise').getAttribute('aria-pressed') === 'true');
  await page.click('#noise');
  await until(now => now.output.noise === false, 'the noise is off');
  await page.waitForFunction(() => document.getElementById('noise').getAttribute('aria-pressed') === 'false');
  await page.click('#noise');
  await until(now => now.output.noise === '50HZ', 'the noise is on again');

  // A server that says nothing any more: the page tells so, guesses no further, and goes on with it.
  const simulator = text => page.waitForFunction(text => document.getElementById('simulator-text').textContent.includes(text), text);
  const server = Number(process.argv[4]);
  process.kill(server, 'SIGSTOP');
  try {
    await simulator('The server does not answer');
    const position = await page.textContent('#position');
    await page.waitForTimeout(1500);
    assert.strictEqual(await page.textContent('#position'), position);
    assert.strictEqual(await page.evaluate(() => getComputedStyle(document.getElementById('screen')).opacity), '0.5');
  } finally {
    process.kill(server, 'SIGCONT');
  }
  await simulator('RAVO');
  assert.deepStrictEqual(problems, []);
  await browser.close();
  console.log('the page is as it should be');
}

main().catch(error => { console.error(error); process.exit(1); });
