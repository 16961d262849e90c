// The debug adapter as a client library of the protocol's makers sees it. Run by tests/dap/run.
'use strict';
const assert = require('node:assert');
const fs = require('node:fs');
const os = require('node:os');
const path = require('node:path');
const { spawn } = require('node:child_process');
const { test } = require('node:test');
const { Client, withClient, example, ADAPTER, PROGRAMS } = require('./client.js');

const COLLATZ = { launchFile: example('opencl_c/collatz.json') };
const COLLATZ_SOURCE = { path: example('opencl_c/collatz.cl') };
const VECTOR_ADD = { launchFile: example('vector_add/vector_add.json') };

function named(variables, name) {
  const found = variables.find(variable => variable.name === name);
  assert.ok(found, `${name} isn't among ${variables.map(variable => variable.name)}`);
  return found;
}

test('a launch stops at a line, shows its values, and is stepped', () => withClient(async client => {
  const set = await client.begin(COLLATZ, COLLATZ_SOURCE, [{ line: 27, condition: 'n < 10' }, { line: 1000 }]);
  assert.deepStrictEqual(set.map(one => [one.verified, one.line]), [[true, 27], [false, 1000]]);
  const stop = await client.next('stopped');
  assert.strictEqual(stop.reason, 'breakpoint');
  assert.deepStrictEqual(stop.hitBreakpointIds, [set[0].id]);
  const threads = (await client.threadsRequest()).body.threads;
  assert.match(threads[0].name, /^collatz, work-item \d$/);

  const frame = await client.top();
  assert.deepStrictEqual([frame.name, frame.line, frame.source.path], ['collatz', 27, COLLATZ_SOURCE.path]);
  const locals = await client.scope('Locals');
  const n = named(locals, 'n');
  assert.strictEqual(n.type, 'ulong');
  const all = named((await client.variablesRequest({ variablesReference: n.variablesReference })).body.variables,
    'all work-items');
  assert.strictEqual(all.indexedVariables, 8);
  const page = (await client.variablesRequest(
    { variablesReference: all.variablesReference, filter: 'indexed', start: 2, count: 3 })).body.variables;
  assert.deepStrictEqual(page.map(one => one.name), ['[2]', '[3]', '[4]']);
  const values = (await client.variablesRequest({ variablesReference: all.variablesReference })).body.variables;
  const focus = Number(/(\d+)$/.exec(threads[0].name)[1]);
  assert.strictEqual(values[focus].value, n.value);
  // By the values that are shown, the condition holds for some active work-item.
  assert.ok(values.some(one => !one.value.includes('not active') && BigInt(one.value) < 10n));

  const hover = await client.evaluateRequest({ expression: 'n * 2', frameId: frame.id, context: 'hover' });
  assert.strictEqual(BigInt(hover.body.result), 2n * BigInt(n.value));
  const hex = await client.evaluateRequest({ expression: 'n', frameId: frame.id, format: { hex: true } });
  assert.strictEqual(BigInt(hex.body.result), BigInt(n.value));
  const repl = await client.evaluateRequest({ expression: 'info line', frameId: frame.id, context: 'repl' })
    .catch(() => client.evaluateRequest({ expression: 'backtrace', frameId: frame.id, context: 'repl' }));
  assert.match(repl.body.result, /collatz/);

  await client.stepBackRequest({ threadId: 1 });
  assert.strictEqual((await client.next('stopped')).reason, 'step');
  const before = (await client.top()).line;
  assert.notStrictEqual(before, 27);
  await client.nextRequest({ threadId: 1 });
  await client.next('stopped');
  assert.ok((await client.top()).line > before);
  await client.reverseContinueRequest({ threadId: 1 });
  await client.next('stopped');

  await client.setBreakpointsRequest({ source: COLLATZ_SOURCE, breakpoints: [] });
  await client.continueRequest({ threadId: 1 });
  assert.strictEqual((await client.next('exited')).exitCode, 0);
  await client.next('terminated');
}));

test('points of all kinds stop, count and log', () => withClient(async client => {
  await client.begin({ ...COLLATZ, stopOnEntry: true }, COLLATZ_SOURCE,
    [{ line: 27, logMessage: 'count is {count} of {nonsense' }, { line: 13, hitCondition: '3' }]);
  assert.strictEqual((await client.next('stopped')).reason, 'entry');
  const functions = (await client.setFunctionBreakpointsRequest(
    { breakpoints: [{ name: 'collatz' }, { name: 'nobody' }] })).body.breakpoints;
  assert.deepStrictEqual(functions.map(one => one.verified), [true, false]);
  const locations = (await client.customRequest('breakpointLocations',
    { source: COLLATZ_SOURCE, line: 5, endLine: 9 })).body.breakpoints;
  assert.ok(locations.length > 2 && locations.every(one => one.line >= 5 && one.line <= 9));
  await client.continueRequest({ threadId: 1 });
  assert.strictEqual((await client.next('stopped')).reason, 'breakpoint');
  assert.strictEqual((await client.top()).line, 13);
  const logged = client.output('console').split('\n').filter(line => line.startsWith('count is '));
  assert.deepStrictEqual(logged, ['count is 0 of {nonsense', 'count is 1 of {nonsense']);

  const info = (await client.dataBreakpointInfoRequest({ name: 'steps[3]' })).body;
  assert.strictEqual(info.dataId, 'steps[3]');
  const none = (await client.dataBreakpointInfoRequest({ name: 'count' })).body;
  assert.strictEqual(none.dataId, null);
  await client.setBreakpointsRequest({ source: COLLATZ_SOURCE, breakpoints: [] });
  const data = (await client.setDataBreakpointsRequest(
    { breakpoints: [{ dataId: info.dataId, accessType: 'write' }] })).body.breakpoints;
  assert.strictEqual(data[0].verified, true);
  await client.continueRequest({ threadId: 1 });
  assert.strictEqual((await client.next('stopped')).reason, 'data breakpoint');
  assert.strictEqual((await client.threadsRequest()).body.threads[0].name, 'collatz, work-item 3');

  await client.restartRequest();
  assert.strictEqual((await client.next('stopped')).reason, 'function breakpoint');
  assert.strictEqual(await client.refusal('setExceptionBreakpoints', { filters: ['nothing'] }),
    'there is no exception filter nothing');
  const filters = await client.setExceptionBreakpointsRequest({ filters: ['race', 'faults'] });
  assert.deepStrictEqual(filters.body.breakpoints.map(one => one.verified), [false, true]);
  await client.terminateRequest();
  await client.next('terminated');
}));

test('filters of exceptions stop before what a kernel does wrong', () => withClient(async client => {
  const source = { path: example('../docs/tutorial/means.cl') };
  await client.begin({ launchFile: source.path.replace('.cl', '.json') }, source, [{ line: 5 }]);
  await client.next('stopped');
  await client.setBreakpointsRequest({ source, breakpoints: [] });
  const set = await client.setExceptionBreakpointsRequest({ filters: ['nan', 'race', 'barrier'] });
  assert.deepStrictEqual(set.body.breakpoints.map(one => one.verified), [true, true, false]);
  for (const [line, item] of [[14, 1], [14, 1]]) {
    await client.continueRequest({ threadId: 1 });
    assert.strictEqual((await client.next('stopped')).reason, 'exception');
    assert.strictEqual((await client.top()).line, line);
    assert.strictEqual((await client.threadsRequest()).body.threads[0].name, `means, work-item ${item}`);
  }
  await client.setExceptionBreakpointsRequest({ filters: ['nan'] });
  await client.continueRequest({ threadId: 1 });
  assert.strictEqual((await client.next('stopped')).reason, 'exception');
  assert.strictEqual((await client.top()).line, 22);
  await client.terminateRequest();
  await client.next('terminated');
}));

test('IL is debugged in its own file, by instructions', () => withClient(async client => {
  const source = { path: example('vector_add/vector_add.il') };
  const text = fs.readFileSync(source.path, 'utf8').split('\n');
  const line = text.findIndex(one => one.trim().startsWith('ishl r1.x')) + 1;
  const set = await client.begin(VECTOR_ADD, source, [{ line }]);
  assert.deepStrictEqual([set[0].verified, set[0].line], [true, line]);
  await client.next('stopped');
  let frame = await client.top();
  assert.deepStrictEqual([frame.line, frame.source.path], [line, source.path]);
  await client.nextRequest({ threadId: 1, granularity: 'instruction' });
  await client.next('stopped');
  frame = await client.top();
  assert.match(text[frame.line - 1], /i64add r2/);

  const registers = await client.scope('Registers');
  const r0 = named(registers, 'r0');
  const all = (await client.variablesRequest({ variablesReference: r0.variablesReference })).body.variables[0];
  const items = (await client.variablesRequest({ variablesReference: all.variablesReference })).body.variables;
  assert.deepStrictEqual(items.map(one => /^\((\d+),/.exec(one.value)[1]), [...Array(16).keys()].map(String));
  const b = named(await client.scope('Arguments'), 'b');
  const elements = (await client.variablesRequest(
    { variablesReference: b.variablesReference, filter: 'indexed', start: 1, count: 2 })).body.variables;
  assert.deepStrictEqual(elements.map(one => [one.name, one.value]), [['[1]', '0.5'], ['[2]', '0.5']]);

  const code = (await client.disassembleRequest({
    memoryReference: frame.instructionPointerReference, instructionOffset: -20, instructionCount: 40 })).body.instructions;
  assert.strictEqual(code.length, 40);
  assert.match(code[20].instruction, /^i64add r2/);
  assert.strictEqual(code[0].presentationHint, 'invalid');
  assert.ok(code.slice(1).every((one, n) => BigInt(one.address) > BigInt(code[n].address)));
  const store = code.find(one => one.instruction.startsWith('uav_raw_store'));
  const points = (await client.customRequest('setInstructionBreakpoints',
    { breakpoints: [{ instructionReference: store.address }] })).body.breakpoints;
  assert.strictEqual(points[0].verified, true);
  await client.continueRequest({ threadId: 1 });
  assert.strictEqual((await client.next('stopped')).reason, 'instruction breakpoint');

  // Memory by the address of an element, as the kernel has it.
  const address = (await client.evaluateRequest({ expression: 'print/x r3.xy', context: 'repl' })).body.result;
  const words = /0x([0-9a-f]+), 0x([0-9a-f]+)/.exec(address);
  const pointer = BigInt('0x' + words[2]) << 32n | BigInt('0x' + words[1]);
  const memory = (await client.customRequest('readMemory',
    { memoryReference: '0x' + pointer.toString(16), count: 8 })).body;
  assert.strictEqual(Buffer.from(memory.data, 'base64').readFloatLE(4), 0.5);
  const mask = (await client.customRequest('kestrel/mask', { width: 4, height: 4 })).body;
  assert.ok(Object.keys(mask).length > 2);
  const grid = (await client.customRequest('kestrel/grid', { expression: 'r7.x', width: 16, height: 1 })).body;
  assert.ok(JSON.stringify(grid).includes('15.5'));
  await client.customRequest('kestrel/focus', { item: [5] });
  await client.next('invalidated');
  assert.match((await client.threadsRequest()).body.threads[0].name, /work-item 5$/);
}));

test('called and inlined functions are frames, and structures open', () => withClient(async client => {
  await client.begin({ launchFile: example('opencl_c/reduction.json'), stopOnEntry: true });
  await client.next('stopped');
  const sources = (await client.customRequest('loadedSources')).body.sources;
  assert.ok(sources.some(one => one.path === example('opencl_c/reduction.cl')));
  const il = sources.find(one => one.sourceReference);
  const content = (await client.sourceRequest({ source: il, sourceReference: il.sourceReference })).body.content;
  assert.match(content, /endfunc/);
  const completions = (await client.completionsRequest({ text: 'info lo', column: 8 })).body.targets;
  assert.ok(completions.some(one => one.label === 'locals' || one.label === 'local'));
  await client.stepInRequest({ threadId: 1 });
  await client.next('stopped');
  assert.ok((await client.scope('Local memory')).length > 0);
  await client.stepOutRequest({ threadId: 1 });
  await client.next('terminated');
}));

/// Runs a test with a launch of a kernel whose text the test gives.
async function withKernel(text, kernel, launch, work) {
  const folder = fs.mkdtempSync(path.join(os.tmpdir(), 'kestrel-dap-'));
  fs.writeFileSync(path.join(folder, 'kernel.cl'), text);
  fs.writeFileSync(path.join(folder, 'launch.json'), JSON.stringify({ program: 'kernel.cl', kernel, ...launch }));
  try {
    await work({ launchFile: 'launch.json', cwd: folder }, { path: path.join(folder, 'kernel.cl') });
  } finally {
    fs.rmSync(folder, { recursive: true });
  }
}

test('fifty locals of a thousand work-items cost less than three runs', () => {
  const numbers = [...Array(50).keys()];
  const text = ['kernel void many(global int* out)', '{', '    int i = get_global_id(0);',
    ...numbers.map(n => `    int v${n} = i * ${n} + out[i];`), '    int sum = 0;',
    ...numbers.map(n => `    sum += v${n};`), '    out[i] = sum;', '}', ''].join('\n');
  const args = [{ buffer: { type: 'int', count: 1024, fill: 'iota' } }];
  return withKernel(text, 'many', { global: [1024], local: [64], args }, (launch, source) => withClient(async client => {
    const countRuns = async () => Number(/(\d+) kernel runs/.exec(
      (await client.evaluateRequest({ expression: 'info dispatch', context: 'repl' })).body.result)[1]);
    await client.begin(launch, source, [{ line: 74 }]);
    for (let stop = 0; stop < 3; stop++) {
      await client.next('stopped');
      const before = await countRuns();
      const locals = await client.scope('Locals');
      assert.ok((await countRuns()) - before < 3);
      // Work-item 0 reads 0, so all of its values are 0. The last one's are computed as in C.
      assert.ok(numbers.every(n => named(locals, `v${n}`).value === '0'));
      const all = (await client.variablesRequest(
        { variablesReference: named(locals, 'v7').variablesReference })).body.variables[0];
      const last = (await client.variablesRequest(
        { variablesReference: all.variablesReference, filter: 'indexed', start: 1023, count: 5 })).body.variables;
      assert.deepStrictEqual(last.map(one => [one.name, one.value]), [['[1023]', String(1023 * 8)]]);
      await client.nextRequest({ threadId: 1 });
    }
  }));
});

test('structures, vectors and arrays open, of the focus and of all', () => withKernel(
  `struct pair { int first; float2 second; };
kernel void parts(global struct pair* out)
{
    int i = get_global_id(0);
    struct pair one;
    one.first = i;
    one.second = (float2)(i, 0.5f);
    int list[3] = {i, i + 1, i + 2};
    out[i] = one;
    out[i].first = list[i % 3];
}
`, 'parts', { global: [4], local: [4], args: [{ buffer: { type: 'int', count: 16, fill: 'zero' } }] },
  (launch, source) => withClient(async client => {
    await client.begin(launch, source, [{ line: 10 }]);
    await client.next('stopped');
    await client.customRequest('kestrel/focus', { item: 2 });
    const open = async variable => (await client.variablesRequest(
      { variablesReference: variable.variablesReference })).body.variables;
    const locals = await client.scope('Locals');
    const one = await open(named(locals, 'one'));
    assert.deepStrictEqual(one.map(part => part.name), ['first', 'second', 'all work-items']);
    const second = await open(one[1]);
    assert.deepStrictEqual(second.filter(part => part.name !== 'all work-items').map(part => part.value), ['2.0', '0.5']);
    const y = await open(named(second, '[0]'));
    assert.deepStrictEqual((await open(y[0])).map(item => item.value), ['0.0', '1.0', '2.0', '3.0']);
    const list = named(locals, 'list');
    assert.strictEqual(list.indexedVariables, 3);
    const page = await client.variablesRequest(
      { variablesReference: list.variablesReference, filter: 'indexed', start: 1, count: 1, format: { hex: true } });
    assert.deepStrictEqual(page.body.variables.map(part => [part.name, part.value]), [['[1]', '0x3']]);
    const out = named(await client.scope('Arguments'), 'out');
    assert.strictEqual(out.indexedVariables, 4);
    await client.stepOutRequest({ threadId: 1 });
    await client.next('terminated');
  })));

test('faults are exceptions, if they are wanted', () => withKernel(
  'kernel void astray(global int* out)\n{\n    out[get_global_id(0) + 100] = 1;\n    out[get_global_id(0)] = 2;\n}\n',
  'astray', { global: [4], local: [4], args: [{ buffer: { type: 'int', count: 4, fill: 'zero' } }] },
  (launch, source) => withClient(async client => {
    await client.begin(launch, source, [{ line: 4 }]);
    assert.strictEqual((await client.next('stopped')).reason, 'exception');
    const info = (await client.exceptionInfoRequest({ threadId: 1 })).body;
    assert.strictEqual(info.exceptionId, 'faults');
    assert.match(info.description, /work-item 0 wrote to out\+0x190/);
    await client.setExceptionBreakpointsRequest({ filters: [] });
    await client.restartRequest();
    assert.strictEqual((await client.next('stopped')).reason, 'breakpoint');
    await client.continueRequest({ threadId: 1 });
    assert.strictEqual((await client.next('exited')).exitCode, 5);
  })));

/// Runs a test with a program in a folder that has its kernels: programs read them from where they are started.
function withProgram(name, work) {
  const folder = fs.mkdtempSync(path.join(os.tmpdir(), 'kestrel-dap-'));
  fs.cpSync(example('programs'), folder, { recursive: true });
  const launch = { program: path.join(PROGRAMS, name), args: [], env: { SOME_WORD: 'here' }, cwd: folder };
  return work(launch, fs.realpathSync(folder)).finally(() => fs.rmSync(folder, { recursive: true }));
}

test('a program is stopped in a kernel that it builds later', { skip: !PROGRAMS }, () =>
  withProgram('average', (launch, folder) => withClient(async client => {
    const source = { path: path.join(folder, 'average.cl') };
    const set = await client.begin(launch, source, [{ line: 7, condition: 'sum < 0' }]);
    assert.strictEqual(set[0].verified, false);
    const changed = await client.next('breakpoint');
    assert.deepStrictEqual([changed.breakpoint.id, changed.breakpoint.verified, changed.breakpoint.line],
      [set[0].id, true, 7]);
    client.thread = (await client.next('stopped')).threadId;
    const stack = (await client.stackTraceRequest({ threadId: client.thread })).body.stackFrames;
    assert.deepStrictEqual(stack.map(frame => frame.name), ['sum_of', 'average']);
    assert.ok(Number(named(await client.scope('Locals'), 'sum').value) >= -32768);
    const outer = await client.evaluateRequest({ expression: 'columns', frameId: stack[1].id });
    assert.strictEqual(outer.body.result, '256');
    await client.setBreakpointsRequest({ source, breakpoints: [] });
    await client.stepOutRequest({ threadId: client.thread });
    await client.next('stopped');
    assert.strictEqual((await client.top()).name, 'average');
    await client.restartRequest();
    assert.strictEqual((await client.next('exited')).exitCode, 0);
    await client.next('terminated');
    assert.match(client.output('stdout'), /\d/);
  })));

test('a program is paused between its launches', { skip: !PROGRAMS }, () =>
  withProgram('launches_on', launch => withClient(async client => {
    await client.begin(launch);
    while (client.output('stdout') !== 'launching\n') {
      await client.next('output');
    }
    for (let pause = 0; pause < 2; pause++) {
      await client.pauseRequest({ threadId: 1 });
      const stop = await client.next('stopped');
      assert.strictEqual(stop.reason, 'pause');
      client.thread = stop.threadId;
      assert.strictEqual((await client.top()).name, 'add');
      // The buffer of the launch that waits has what earlier launches added.
      const added = (await client.evaluateRequest({ expression: 'out[3]', frameId: (await client.top()).id })).body.result;
      assert.ok(Number(added) > 0 && Number(added) % 3 === 0, added);
      await client.continueRequest({ threadId: client.thread });
    }
  })));

test('source that a program makes at run time is served by reference', { skip: !PROGRAMS }, () =>
  withProgram('threads', launch => withClient(async client => {
    await client.begin({ ...launch, stopOnEntry: true });
    client.thread = (await client.next('stopped')).threadId;
    const frame = await client.top();
    assert.ok(frame.source.sourceReference > 0 && frame.source.path === undefined);
    const content = (await client.sourceRequest(
      { source: frame.source, sourceReference: frame.source.sourceReference })).body.content;
    const line = content.split('\n').findIndex(one => one.includes('data[')) + 1;
    const set = (await client.setBreakpointsRequest({ source: frame.source, breakpoints: [{ line }] })).body.breakpoints;
    assert.deepStrictEqual([set[0].verified, set[0].line], [true, line]);
    await client.continueRequest({ threadId: client.thread });
    const stop = await client.next('stopped');
    assert.deepStrictEqual(stop.hitBreakpointIds, [set[0].id]);
  })));

test('wrong requests are refused, and the session goes on', () => withClient(async client => {
  const early = [
    ['launch', COLLATZ, /initialize comes first/],
    ['threads', {}, /initialize comes first/],
    ['nonsense', {}, /there is no request nonsense/],
    ['pause', { threadId: 1 }, /nothing is running/],
  ];
  for (const [command, args, expected] of early) {
    assert.match(await client.refusal(command, args), expected, command);
  }
  await client.initializeRequest();
  const before = [
    ['initialize', { adapterID: 'kestrel' }, /it has been done/],
    ['configurationDone', {}, /launch comes first/],
    ['continue', { threadId: 1 }, /launch comes first/],
    ['attach', {}, /there is nothing to attach to/],
    ['launch', {}, /either launchFile/],
    ['launch', { launchFile: 5 }, /launchFile has to be a text/],
    ['launch', { launchFile: '/nowhere.json' }, /nowhere/],
    ['launch', { program: 'a', args: [1] }, /list of texts/],
    ['setBreakpoints', { breakpoints: [{ line: 1 }] }, /a path or a reference/],
    ['setBreakpoints', { source: COLLATZ_SOURCE, breakpoints: [{ line: 'x' }] }, /line has to be a whole number/],
    ['setBreakpoints', { source: COLLATZ_SOURCE, breakpoints: {} }, /has to be a list/],
    ['source', { sourceReference: 7 }, /no source with this reference/],
  ];
  for (const [command, args, expected] of before) {
    assert.match(await client.refusal(command, args), expected, command);
  }
  await client.launchRequest({ ...COLLATZ, stopOnEntry: true });
  assert.match(await client.refusal('launch', COLLATZ), /it has been done/);
  assert.match(await client.refusal('stackTrace', { threadId: 1 }), /configurationDone comes first/);
  await client.next('initialized');
  await client.configurationDoneRequest();
  await client.next('stopped');
  const frame = await client.top();
  const stopped = [
    ['configurationDone', {}, /it has been done/],
    ['continue', {}, /threadId has to be a whole number/],
    ['next', { threadId: 2 }, /there is no thread 2/],
    ['stackTrace', { threadId: 9999999999999 }, /too large/],
    ['scopes', { frameId: 0 }, /no frame 0/],
    ['scopes', { frameId: frame.id + 500 }, /earlier stop, or of none/],
    ['variables', { variablesReference: 4000 }, /earlier stop, or of none/],
    ['variables', { variablesReference: -1 }, /earlier stop, or of none/],
    ['variables', { variablesReference: 1, start: -2 }, /negative/],
    ['evaluate', { expression: '1 +', frameId: frame.id }, /./],
    ['evaluate', { expression: 'nonsense', context: 'repl' }, /nonsense/],
    ['disassemble', { memoryReference: 'x', instructionCount: 3 }, /no instruction at x/],
    ['disassemble', { memoryReference: frame.instructionPointerReference, instructionCount: 1000000 }, /too many/],
    ['readMemory', { memoryReference: 'nowhere', count: 4 }, /no memory at nowhere/],
    ['readMemory', { memoryReference: '0x10', count: 99999999 }, /too much/],
    ['exceptionInfo', { threadId: 1 }, /no faults/],
    ['kestrel/focus', { item: 8 }, /work-items 0 to 7/],
    ['kestrel/focus', { item: [1, 1] }, /no such work-item/],
    ['kestrel/grid', { expression: 'nothing' }, /nothing/],
  ];
  for (const [command, args, expected] of stopped) {
    assert.match(await client.refusal(command, args), expected, `${command} ${JSON.stringify(args)}`);
  }
  const nothing = (await client.customRequest('readMemory', { memoryReference: '0x10', count: 4 })).body;
  assert.strictEqual(nothing.unreadableBytes, 4);
  // References are valid at their stop alone.
  const scopes = (await client.scopesRequest({ frameId: frame.id })).body.scopes;
  await client.nextRequest({ threadId: 1 });
  await client.next('stopped');
  assert.match(await client.refusal('variables', { variablesReference: scopes[0].variablesReference }), /earlier stop/);
  assert.match(await client.refusal('scopes', { frameId: frame.id }), /earlier stop/);
  await client.terminateRequest();
  assert.match(await client.refusal('continue', { threadId: 1 }), /session is over/);
}));

test('two requests at once are done in turn, and a run is paused or cancelled', () => withClient(async client => {
  await client.begin({ ...COLLATZ, stopOnEntry: true });
  await client.next('stopped');
  await Promise.all([client.nextRequest({ threadId: 1 }), client.nextRequest({ threadId: 1 })]);
  await client.next('stopped');
  await client.next('stopped');
  // A request that waits is cancelled; the one before it isn't touched.
  const first = client.nextRequest({ threadId: 1 });
  const second = client.refusal('evaluate', { expression: '1' });
  const cancelled = client.customRequest('cancel', { requestId: client.sequence - 1 });
  await Promise.all([first, cancelled]);
  assert.ok([undefined, 'cancelled'].includes(await second));
  await client.next('stopped');
}));

test('a run without end is paused, or ended with the session', () => withKernel(
  'kernel void endless(global volatile int* out)\n{\n    while (out[0] == 0)\n    {\n    }\n}\n', 'endless',
  { global: [8], local: [8], args: [{ buffer: { type: 'int', count: 1, fill: 'zero' } }] }, async launch => {
    for (const command of ['pause', 'cancel', 'terminate', undefined]) {
      await withClient(async client => {
        await client.begin({ ...launch, stopOnEntry: true });
        await client.next('stopped');
        await client.continueRequest({ threadId: 1 });
        const progress = await client.next('progressStart');
        if (command !== undefined) {
          await client.customRequest(command, { threadId: 1, progressId: progress.progressId });
          // A run that is broken off leaves the session where the run began.
          await client.next(command === 'terminate' ? 'terminated' : 'stopped');
        }
      });
    }
  }));

function waitForExit(child) {
  return new Promise(resolve => child.once('exit', (code, signal) => resolve({ code, signal })));
}

function frame(message) {
  const text = JSON.stringify(message);
  return `Content-Length: ${Buffer.byteLength(text)}\r\n\r\n${text}`;
}

test('a client that dies takes the session and its program with it', { skip: !PROGRAMS }, () =>
  withProgram('average', async (launch, folder) => {
    const child = spawn(ADAPTER, ['dap'], { stdio: ['pipe', 'pipe', 'ignore'] });
    const exit = waitForExit(child);
    const requests = [
      ['initialize', { adapterID: 'kestrel' }],
      ['launch', { ...launch, stopOnEntry: true }],
      ['configurationDone', {}],
    ];
    child.stdin.write(requests.map(([command, args], n) =>
      frame({ type: 'request', seq: n + 1, command, arguments: args })).join(''));
    let heard = '';
    await new Promise(resolve => child.stdout.on('data', data => {
      heard += data;
      if (heard.includes('"event":"stopped"')) {
        resolve();
      }
    }));
    child.stdout.destroy();
    child.stdin.destroy();
    assert.deepStrictEqual(await exit, { code: 0, signal: null });
    const left = fs.readdirSync('/proc').filter(pid => /^\d+$/.test(pid)).filter(pid => {
      try {
        return fs.readlinkSync(`/proc/${pid}/cwd`) === folder;
      } catch {
        return false;
      }
    });
    assert.deepStrictEqual(left, []);
  }));

test('input that is no message is passed over or ends the conversation', async () => {
  const child = spawn(ADAPTER, ['dap'], { stdio: ['pipe', 'pipe', 'inherit'] });
  const exit = waitForExit(child);
  let heard = '';
  child.stdout.on('data', data => { heard += data; });
  child.stdin.write('Content-Length: 4\r\n\r\n{"a}' + frame({ type: 'event', event: 'x' }) + frame([]) +
    frame({ type: 'request', seq: 9, command: 'initialize', arguments: [1] }) + 'Content-Length: x\r\n\r\n');
  assert.deepStrictEqual(await exit, { code: 0, signal: null });
  assert.strictEqual(heard.split('is passed over').length - 1, 3);
  assert.match(heard, /"request_seq":9/);
  assert.match(heard, /Content-Length is no number/);
});

test('a port serves one conversation after the other', async () => {
  const child = spawn(ADAPTER, ['dap', '--port', '0'], { stdio: ['ignore', 'pipe', 'inherit'] });
  try {
    const port = await new Promise(resolve => child.stdout.once('data', data => {
      resolve(Number(/127\.0\.0\.1:(\d+)/.exec(data)[1]));
    }));
    for (let n = 0; n < 2; n++) {
      const client = new Client();
      await client.start(port);
      await client.begin({ ...VECTOR_ADD, stopOnEntry: true });
      await client.next('stopped');
      await client.end();
      client.stopAdapter();
    }
  } finally {
    child.kill();
  }
});
