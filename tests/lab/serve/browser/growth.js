// The memory that a day of looped play adds to the server and to the page, 48 times as fast as real
// time. Prints a line every two minutes; RAVO_PAGE_HOURS of play, 24 by default.
const fs = require('fs');
const { chromium } = require('playwright-core');

const [, , url, scratch, server] = process.argv;
const speed = 48;
const hours = Number(process.env.RAVO_PAGE_HOURS || 24);
const rate = 250;
const minutes = 30;

function writeRecord() {
  const frames = minutes * 60 * rate;
  const samples = Buffer.alloc(frames * 16);
  for (let i = 0; i < frames * 8; ++i) samples.writeInt16LE(i % 400, 2 * i);
  fs.writeFileSync(`${scratch}/day.dat`, samples);
  const leads = ['I', 'II', 'V1', 'V2', 'V3', 'V4', 'V5', 'V6'];
  fs.writeFileSync(`${scratch}/day.hea`, `day 8 ${rate} ${frames}\n` + leads.map(lead => `day.dat 16 200/mV 16 0 0 0 0 ${lead}\n`).join(''));
}

const residentMegabytes = () => Number(/VmRSS:\s+(\d+)/.exec(fs.readFileSync(`/proc/${server}/status`))[1]) / 1024;

async function main() {
  writeRecord();
  const browser = await chromium.launch({ executablePath: '/usr/bin/chromium', args: ['--no-sandbox', '--disable-gpu'] });
  const page = await browser.newPage({ viewport: { width: 1280, height: 800 } });
  const devtools = await page.context().newCDPSession(page);
  await devtools.send('HeapProfiler.enable');
  const heapMegabytes = async () => {
    await devtools.send('HeapProfiler.collectGarbage');
    return (await devtools.send('Runtime.getHeapUsage')).usedSize / 1024 / 1024;
  };
  await page.goto(url);
  await page.waitForFunction(() => document.querySelector('.lamp').className.includes('on'));
  await page.evaluate(() => fetch('/api/play', { method: 'POST', headers: { 'Content-Type': 'application/json' }, body: '{"material":"day.hea","loop":true}' }));
  const began = Date.now();
  const end = began + hours / speed * 3600000;
  while (Date.now() < end) {
    await page.waitForTimeout(120000);
    const { output } = await page.evaluate(() => fetch('/api/state').then(answer => answer.json()));
    console.log(`${(output.framesPlayed / rate / 3600).toFixed(2)} h ${output.state}: server ${residentMegabytes().toFixed(1)} MB, page ${(await heapMegabytes()).toFixed(1)} MB`);
  }
  await browser.close();
}

main().catch(error => { console.error(error); process.exit(1); });
