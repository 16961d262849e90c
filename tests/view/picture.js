// Takes the picture of docs/view.md, from a real session:  tests/view/run --picture KESTREL FOLDER
'use strict';
const fs = require('node:fs');
const os = require('node:os');
const path = require('node:path');
const { spawn } = require('node:child_process');
const puppeteer = require('puppeteer-core');

const sources = process.env.KESTREL_SOURCES;
const folder = fs.mkdtempSync(path.join(os.tmpdir(), 'kestrel-view-'));
fs.copyFileSync(path.join(sources, 'examples/opencl_c/mandelbrot.cl'), path.join(folder, 'mandelbrot.cl'));
fs.writeFileSync(path.join(folder, 'mandelbrot.json'), JSON.stringify({
  program: 'mandelbrot.cl', kernel: 'mandelbrot', global: [128, 128], local: [16, 16],
  args: [{ buffer: { type: 'uchar', count: 65536, fill: 'zero' } }, { buffer: { type: 'int', count: 16384, fill: 'zero' } },
    { value: { type: 'float', values: [-0.7, 0] } }, { value: { type: 'float', values: [0.022] } },
    { value: { type: 'int', values: [64] } }],
}));

async function main() {
  const child = spawn(process.env.KESTREL, ['view', 'mandelbrot.json'], { cwd: folder, stdio: ['ignore', 'pipe', 'inherit'] });
  const address = await new Promise(resolve => child.stdout.once('data', data => resolve(String(data).trim())));
  const browser = await puppeteer.launch({ executablePath: process.env.KESTREL_BROWSER, headless: true, args: ['--no-sandbox'] });
  try {
    const page = await browser.newPage();
    await page.setViewport({ width: 1400, height: 1000 });
    await page.goto(address);
    const wait = text => page.waitForFunction(
      expected => document.getElementById('status').textContent.includes(expected), { timeout: 60000 }, text);
    await wait('16384 of 16384');
    const give = async command => {
      await page.evaluate(text => document.getElementById('command').value = text, command);
      await page.$eval('#console', form => form.requestSubmit());
    };
    await give('break 17 if n == 9');
    await give('continue');
    await wait('line 17');
    for (const stop of [3, 4, 5]) {
      await give('next');
      await page.waitForFunction(number => document.querySelector('#timeline [aria-current]')?.textContent === String(number), {}, stop);
    }
    await page.click('#timeline button:nth-child(2)');
    await wait('line 17');
    await give('workitem 8256');
    await page.waitForFunction(() => document.getElementById('focus').textContent === 'Work-item 8256');
    await page.type('#expression', 'z.x');
    await page.keyboard.press('Enter');
    await page.click('#across');
    await page.waitForFunction(() => document.querySelector('#course + figcaption').textContent !== '');
    await page.waitForFunction(() => document.querySelector('#statistics canvas') !== null);
    await page.screenshot({ path: path.join(sources, 'docs/view.png') });
  } finally {
    await browser.close();
    child.kill();
    fs.rmSync(folder, { recursive: true });
  }
}
main().catch(error => { console.error(error); process.exitCode = 1; });
