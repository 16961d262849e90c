// The page of `kestrel view` in a browser. Run by tests/view/run.
'use strict';
const assert = require('node:assert');
const fs = require('node:fs');
const http = require('node:http');
const os = require('node:os');
const path = require('node:path');
const { spawn } = require('node:child_process');
const { after, before, test } = require('node:test');
const puppeteer = require('puppeteer-core');

let browser;

before(async () => {
  browser = await puppeteer.launch({
    executablePath: process.env.KESTREL_BROWSER, headless: true, args: ['--no-sandbox', '--disable-gpu'],
  });
});
after(() => browser?.close());

/// Serves a launch while a test runs with the page's address.
async function withView(launch, work) {
  const child = spawn(process.env.KESTREL, ['view', launch], { stdio: ['ignore', 'pipe', 'inherit'] });
  const exit = new Promise(resolve => child.once('exit', (code, signal) => resolve({ code, signal })));
  try {
    const address = await new Promise((resolve, reject) => {
      child.stdout.once('data', data => resolve(String(data).trim()));
      child.once('exit', () => reject(new Error('kestrel view has ended')));
    });
    await work(address);
  } finally {
    child.kill();
  }
  assert.deepStrictEqual(await exit, { code: 0, signal: null });
}

/// Opens the page. It collects the browser's complaints, and its requests to other addresses.
async function open(address) {
  const page = await browser.newPage();
  page.complaints = [];
  page.on('console', message => ['error', 'warning'].includes(message.type()) && page.complaints.push(message.text()));
  page.on('pageerror', error => page.complaints.push(error.message));
  page.on('request', request => {
    if (!request.url().startsWith(address)) {
      page.complaints.push(`asks for ${request.url()}`);
    }
  });
  await page.goto(address);
  return page;
}

const status = (page, expected) => page.waitForFunction(
  text => new RegExp(text).test(document.getElementById('status').textContent), { timeout: 20000 }, expected);
const textOf = (page, selector) => page.$eval(selector, element => element.textContent);
const collatz = path.join(process.env.KESTREL_SOURCES, 'examples/opencl_c/collatz.json');

test('a session is stepped forward and back, and shows its values', () => withView(collatz, async address => {
  const page = await open(address);
  await status(page, 'line 4: 8 of 8 active');
  await page.click('[data-command=next]');
  await status(page, 'line 5:');
  await page.keyboard.press('F10');
  await status(page, 'line 6:');
  assert.match(await textOf(page, '.here'), /ulong n = first \+ id/);
  await page.click('[data-command=reverse-next]');
  await status(page, 'line 5:');

  await page.evaluate(() => document.querySelectorAll('#source button')[26].click());
  await page.waitForFunction(() => document.getElementById('output').textContent.includes('breakpoint 1'));
  await page.click('[data-command=continue]');
  await status(page, 'line 27: 8 of 8');
  await page.type('#expression', 'n');
  await page.keyboard.press('Enter');
  await page.waitForFunction(() => document.getElementById('legend').textContent.startsWith('n: blue 12'));
  await page.waitForFunction(() => document.getElementById('statistics').textContent.includes('distinct'));
  await page.waitForFunction(() => document.querySelector('figure:not([hidden]) figcaption').textContent.startsWith('n from work-item 0 to 7: 12'));
  // Two stops at line 5: on the way there and back.
  assert.strictEqual(await page.$eval('#source li:nth-child(5) output', margin => margin.textContent), '2 × 100 %');
  await page.click('[data-command=continue]');
  await status(page, 'line 27:');

  // The third of eight cells in a row.
  const canvas = await page.$('#dispatch');
  const width = await canvas.evaluate(element => element.clientWidth);
  await canvas.click({ offset: { x: width * 2.5 / 8, y: width * 0.5 / 8 } });
  await page.waitForFunction(() => document.getElementById('focus').textContent === 'Work-item 2');
  const rows = await page.$$eval('#variables tr', found => found.map(row => [...row.cells].map(cell => cell.textContent)));
  assert.strictEqual(rows.find(row => row[0] === 'id')[1], '2');
  for (const pixels of [1000, 2500]) {
    await page.setViewport({ width: pixels, height: 1200 });
    assert.ok(await page.evaluate(() => document.documentElement.scrollWidth <= innerWidth), `${pixels} pixels`);
  }
  assert.deepStrictEqual(page.complaints, []);
  await page.close();
}));

test('the time line leads to stops, and they are compared and plotted', () => withView(collatz, async address => {
  const page = await open(address);
  await status(page, 'line 4:');
  const give = async text => {
    await page.evaluate(command => { document.getElementById('command').value = command; }, text);
    await page.$eval('#console', form => form.requestSubmit());
  };
  const stops = () => page.$$eval('#timeline button', found => found.map(button => /: ([^,]*)/.exec(button.title)[1]));
  const current = number => page.waitForFunction(
    text => document.querySelector('#timeline [aria-current]')?.textContent === text, { timeout: 20000 }, String(number));
  await give('break 27');
  await page.waitForFunction(() => document.getElementById('output').textContent.includes('breakpoint 1'));
  for (const number of [2, 3, 4]) {
    await page.click('[data-command=continue]');
    await current(number);
  }
  assert.deepStrictEqual(await stops(), ['collatz.cl:4', 'collatz.cl:27', 'collatz.cl:27', 'collatz.cl:27']);

  // The values of n at the breakpoint, computed by the sequence: work-item 2 starts with first + 2.
  await give('workitem 2');
  await page.waitForFunction(() => document.getElementById('focus').textContent === 'Work-item 2');
  const shown = () => page.$$eval('#variables tr', rows => BigInt([...rows].find(row => row.cells[0].textContent === 'n').cells[1].textContent));
  const next = n => (n % 2n === 1n ? 3n * n + 1n : n / 2n);
  const third = await shown();
  await page.focus('#timeline [aria-current]');
  await page.keyboard.press('ArrowLeft');
  await page.keyboard.press('ArrowLeft');
  await page.keyboard.press('Enter');
  await current(2);
  const first = await shown();
  assert.strictEqual(next(next(first)), third);
  assert.strictEqual((await stops()).length, 4);

  await page.type('#expression', 'n');
  await page.keyboard.press('Enter');
  await page.click('#across');
  await page.waitForFunction(() => document.querySelector('#course + figcaption').textContent !== '');
  const numbers = [first, next(first), third].map(Number);
  assert.strictEqual(await textOf(page, '#course + figcaption'),
    `n of work-item 2 from stop 1 to 4: ${Math.min(...numbers)} to ${Math.max(...numbers)}`);
  await current(2);

  await page.select('#since', '4');
  await page.waitForFunction(() => document.getElementById('legend').textContent.startsWith('8 of 8 have another n than at stop 4'));
  assert.strictEqual(await page.$eval('#changes tr:nth-child(3)', row => row.cells[1].textContent), `${third} → ${first}`);
  // Forward again to where it was.
  await page.click('#timeline button:nth-child(4)');
  await current(4);
  assert.strictEqual(await shown(), third);
  assert.deepStrictEqual(page.complaints, []);
  await page.close();
}));

test('the writes of an element are listed, and work-items coloured by their last lines', async () => {
  const folder = fs.mkdtempSync(path.join(os.tmpdir(), 'kestrel-view-'));
  fs.writeFileSync(path.join(folder, 'writes.cl'), `kernel void writes(global int* out)
{
    int id = get_global_id(0);
    for (int i = 0; i < 3; ++i)
    {
        out[id / 2] = 10 * id + i;
    }
    if (id < 3)
    {
        out[id] += 100;
    }
}
`);
  fs.writeFileSync(path.join(folder, 'writes.json'), JSON.stringify({
    program: 'writes.cl', kernel: 'writes', global: [8], local: [4], args: [{ buffer: { type: 'int', count: 8, fill: 'zero' } }],
  }));
  await withView(path.join(folder, 'writes.json'), async address => {
    const page = await open(address);
    await status(page, 'line 2:');
    await page.type('#element', 'out[3]');
    await page.keyboard.press('Enter');
    await page.waitForFunction(() => document.querySelectorAll('#accesses tr').length === 6);
    const rows = await page.$$eval('#accesses tr', found => found.map(row => [...row.cells].slice(0, 3).map(cell => cell.textContent)));
    const written = item => rows.filter(row => row[0] === `work-item ${item}`).map(row => / → (.*)/.exec(row[2])[1]);
    // Work-items 6 and 7 write at the same time, and the values of 7 remain.
    assert.deepStrictEqual([written(6).length, written(7)], [3, ['70', '71', '72']]);
    const last = rows.findLastIndex(row => row[0] === 'work-item 7');
    await page.click(`#accesses tr:nth-child(${last + 1}) button`);
    await status(page, 'line 6:');
    await page.waitForFunction(() => document.getElementById('focus').textContent === 'Work-item 7');
    const value = name => page.$$eval('#variables tr',
      (found, wanted) => [...found].find(row => row.cells[0].textContent === wanted).cells[1].textContent, name);
    assert.strictEqual(await value('i'), '2');
    // An index computed from the work-item's own variables gives the writes of its element.
    await page.evaluate(() => {
      document.getElementById('written').textContent = '';
      document.getElementById('element').value = 'out[id / 2]';
    });
    await page.$eval('#writes', form => form.requestSubmit());
    await page.waitForFunction(() => document.getElementById('written').textContent.startsWith('out[3]: 6 accesses'));
    // What is half typed isn't asked for, whoever moves meanwhile.
    await page.evaluate(() => {
      document.getElementById('element').value = 'out[i';
      document.getElementById('expression').value = 'i +';
      return command('workitem 2');
    });
    await page.waitForFunction(() => document.getElementById('written').textContent.startsWith('out[1]: 8 accesses'));
    assert.match(await textOf(page, '#legend'), /active/);
    await page.evaluate(() => { document.getElementById('expression').value = ''; });

    await page.evaluate(() => { document.getElementById('command').value = 'break 10'; });
    await page.$eval('#console', form => form.requestSubmit());
    await page.waitForFunction(() => document.getElementById('output').textContent.includes('breakpoint 1'));
    await page.click('[data-command=continue]');
    await status(page, 'line 10: 3 of 8');
    await page.click('#lines');
    // The others' last line is that of the condition, at which nobody has stopped.
    await page.waitForFunction(() => /writes.cl:10 3 .*writes.cl:8 5/.test(document.getElementById('legend').textContent));
    assert.deepStrictEqual(page.complaints, []);
    await page.close();
  });
  fs.rmSync(folder, { recursive: true });
});

test('a million work-items are drawn', async () => {
  const folder = fs.mkdtempSync(path.join(os.tmpdir(), 'kestrel-view-'));
  fs.writeFileSync(path.join(folder, 'many.cl'),
    'kernel void many(global int* out)\n{\n    int x = get_global_id(0);\n    out[0] = x;\n}\n');
  fs.writeFileSync(path.join(folder, 'many.json'), JSON.stringify({
    program: 'many.cl', kernel: 'many', global: [1024, 1024], local: [64, 4],
    args: [{ buffer: { type: 'int', count: 1, fill: 'zero' } }],
  }));
  await withView(path.join(folder, 'many.json'), async address => {
    const page = await open(address);
    await status(page, 'line 2');
    for (const line of [3, 4]) {
      await page.click('[data-command=next]');
      await status(page, `line ${line}`);
    }
    await page.type('#expression', 'x');
    await page.keyboard.press('Enter');
    await page.waitForFunction(() => document.getElementById('legend').textContent === 'x: blue 0.5 to orange 1022.5; a cell is 4 work-items');
    // Blue on the left, orange on the right.
    const ends = await page.$eval('#dispatch', canvas => {
      const context = canvas.getContext('2d');
      const at = share => [...context.getImageData(Math.floor((canvas.width - 1) * share), 20, 1, 1).data];
      return [at(0.02), at(0.98)];
    });
    assert.ok(ends[0][2] > ends[0][0] && ends[1][0] > ends[1][2], JSON.stringify(ends));
    await page.click('#lines');
    await page.waitForFunction(() => /many.cl:4 1048576/.test(document.getElementById('legend').textContent));
    assert.deepStrictEqual(page.complaints, []);
    await page.close();
  });
  fs.rmSync(folder, { recursive: true });
});

test('strangers get nothing, and a page can do no more than it should', () => withView(collatz, async address => {
  const url = new URL(address);
  const ask = (file, headers = {}, body = undefined) => new Promise((resolve, reject) => {
    const request = http.request({
      host: url.hostname, port: url.port, path: file, headers, method: body === undefined ? 'GET' : 'POST', agent: false,
    }, response => {
      let text = '';
      response.on('data', data => { text += data; });
      response.on('end', () => resolve([response.statusCode, text]));
    });
    request.on('error', reject);
    request.end(body);
  });
  const token = url.pathname;
  const refused = [
    ['/', {}],
    ['/cells', {}],
    [`/${'0'.repeat(token.length - 2)}/`, {}],
    [token, { Host: 'evil.example' }],
    [token, { Host: `localhost.evil:${url.port}` }],
    [`${token}cells`, { Origin: 'http://evil.example' }],
    [`${token}cells`, { Origin: 'null' }],
    [`${token}accesses?element=out[0]`, { Origin: 'http://evil.example' }],
  ];
  for (const [file, headers] of refused) {
    assert.strictEqual((await ask(file, headers))[0], 403, `${file} ${JSON.stringify(headers)}`);
  }
  assert.strictEqual((await ask(token))[0], 200);
  assert.strictEqual((await ask(`${token}../etc/passwd`))[0], 404);
  for (const command of ['shell ls', 'save breakpoints x', 'source x', 'capture', 'quit', 'next\nshell ls', 'breakx']) {
    const [code, text] = await ask(`${token}command`, {}, command);
    assert.deepStrictEqual([code, /a page can't do this/.test(text)], [400, true], command);
  }
  assert.strictEqual((await ask(`${token}command`, {}, 'x'.repeat(10000)))[0], 413);
  const wrong = [
    [200, 'cells?expression=nothing'], [200, 'cells?expression=n&from=7'], [400, 'cells?from=x'],
    [200, 'accesses?element=steps[99999]'], [200, 'accesses?element=nothing[0]'],
  ];
  for (const [expected, query] of wrong) {
    const [code, text] = await ask(`${token}${query}`);
    assert.deepStrictEqual([code, JSON.parse(text).error.length > 0], [expected, true], query);
  }
  assert.strictEqual((await ask(`${token}access?line=x&item=0&pass=0`, {}, ''))[0], 400);
}));

test('a page that the prompt serves follows it, and moves it', async () => {
  const child = spawn(process.env.KESTREL, ['debug', '-q', collatz], { stdio: ['pipe', 'pipe', 'inherit'] });
  const exit = new Promise(resolve => child.once('exit', (code, signal) => resolve({ code, signal })));
  let told = '';
  const heard = (pattern, from = 0) => new Promise((resolve, reject) => {
    const look = () => {
      const found = pattern.exec(told.slice(from));
      return found === null ? setTimeout(look, 20) : resolve(found[0]);
    };
    look();
    setTimeout(() => reject(new Error(`${pattern} doesn't come; there is: ${told}`)), 20000).unref();
  });
  child.stdout.on('data', data => { told += data; });
  child.stdin.write('start\nview\n');
  const address = await heard(/http:\S+/);
  const page = await open(address);
  await status(page, 'line 4: 8 of 8 active');
  child.stdin.write('next\n');
  await status(page, 'line 5:');
  await page.click('[data-command=next]');
  await status(page, 'line 6:');
  await heard(/collatz\.cl:6/);
  child.stdin.write('workitem 3\n');
  await page.waitForFunction(() => document.getElementById('focus').textContent === 'Work-item 3');
  child.stdin.write('view off\nprint 40 + 2\n');
  await heard(/= 42/);
  await assert.rejects(fetch(address));
  await page.close();
  child.stdin.end();
  assert.deepStrictEqual(await exit, { code: 0, signal: null });
});
