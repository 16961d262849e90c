// How long a million work-items take to be drawn after a step, in a browser:  tests/view/run --bench KESTREL FOLDER
'use strict';
const fs = require('node:fs');
const os = require('node:os');
const path = require('node:path');
const { spawn } = require('node:child_process');
const puppeteer = require('puppeteer-core');

const folder = fs.mkdtempSync(path.join(os.tmpdir(), 'kestrel-view-'));
fs.writeFileSync(path.join(folder, 'many.cl'), `kernel void many(global float* out)
{
    int x = get_global_id(0);
    int y = get_global_id(1);
    float value = x * 0.5f;
    for (int i = 0; i < 100; ++i)
    {
        value = value * 1.01f + y;
    }
    out[y * get_global_size(0) + x] = value;
}
`);
fs.writeFileSync(path.join(folder, 'many.json'), JSON.stringify({
  program: 'many.cl', kernel: 'many', global: [1024, 1024], local: [64, 4],
  args: [{ buffer: { type: 'float', count: 1048576, fill: 'zero' } }],
}));

const median = numbers => [...numbers].sort((a, b) => a - b)[Math.floor(numbers.length / 2)];

async function main() {
  const child = spawn(process.env.KESTREL, ['view', 'many.json'], { cwd: folder, stdio: ['ignore', 'pipe', 'inherit'] });
  const address = await new Promise(resolve => child.stdout.once('data', data => resolve(String(data).trim())));
  const browser = await puppeteer.launch({ executablePath: process.env.KESTREL_BROWSER, headless: true, args: ['--no-sandbox', '--disable-gpu'] });
  try {
    const page = await browser.newPage();
    await page.setViewport({ width: 1400, height: 900 });
    await page.goto(address);
    // For each stop: the times from its state's arrival until the picture and until all the rest was drawn.
    await page.evaluate(() => {
      window.frames_ = [];
      const [handle, paintPicture] = [onState, draw];
      let [begun, painted] = [0, 0];
      draw = () => {
        paintPicture();
        painted = performance.now() - begun;
      };
      onState = async next => {
        const drawn = !next.busy && next.shown !== shown;
        begun = performance.now();
        await handle(next);
        if (drawn) {
          frames_.push([painted, performance.now() - begun]);
        }
      };
    });
    const frames = () => page.evaluate(() => frames_.length);
    const step = async () => {
      const before = await frames();
      const command = await page.evaluate(async () => {
        const begun = performance.now();
        await ask('command', 'next');
        return performance.now() - begun;
      });
      await page.waitForFunction(count => frames_.length > count, { timeout: 60000, polling: 5 }, before);
      return command;
    };
    for (let n = 0; n < 6; ++n) {
      await step();
    }
    for (const [name, expression] of [['the active ones', ''], ['x', 'x'], ['value', 'value'], ['value * 2 + y', 'value * 2 + y']]) {
      await page.evaluate(text => { element('expression').value = text; }, expression);
      await page.evaluate(() => { frames_.length = 0; });
      const commands = [];
      for (let n = 0; n < 9; ++n) {
        commands.push(await step());
      }
      const [pictures, all] = [0, 1].map(which => page.evaluate(n => frames_.map(frame => frame[n]), which));
      const text = times => `${median(times).toFixed(0)} ms (${times.map(time => time.toFixed(0)).join(' ')})`;
      console.log(`${name}: the stop itself ${median(commands).toFixed(0)} ms; `
        + `from when the page was told of it to the picture ${text(await pictures)}, to all ${text(await all)}`);
    }
  } finally {
    await browser.close();
    child.kill();
    fs.rmSync(folder, { recursive: true });
  }
}
main().catch(error => { console.error(error); process.exitCode = 1; });
