// The extension's manifest, code and grammar. Run by tests/editors/run.
'use strict';
const assert = require('node:assert');
const fs = require('node:fs');
const Module = require('node:module');
const path = require('node:path');
const { test } = require('node:test');
const oniguruma = require('vscode-oniguruma');
const { Registry, parseRawGrammar, INITIAL } = require('vscode-textmate');

const SOURCES = path.join(__dirname, '../..');
const EXTENSION = path.join(SOURCES, 'editors/vscode');

async function loadGrammar() {
  await oniguruma.loadWASM(fs.readFileSync(require.resolve('vscode-oniguruma/release/onig.wasm')));
  const registry = new Registry({
    onigLib: Promise.resolve({
      createOnigScanner: patterns => new oniguruma.OnigScanner(patterns),
      createOnigString: text => new oniguruma.OnigString(text),
    }),
    loadGrammar: async () => {
      const file = path.join(EXTENSION, 'syntaxes/il.tmLanguage.json');
      return parseRawGrammar(fs.readFileSync(file, 'utf8'), file);
    },
  });
  return registry.loadGrammar('source.kestrel-il');
}

/// The words of a line with their innermost scopes, without what stands between them.
function paint(grammar, line) {
  return grammar.tokenizeLine(line, INITIAL).tokens
    .map(token => [line.slice(token.startIndex, token.endIndex), token.scopes.at(-1).replace('.kestrel-il', '')])
    .filter(([text]) => /\w/.test(text));
}

test('IL has the colours of what it says', async () => {
  const grammar = await loadGrammar();
  const cases = [
    [';a comment', [[';a comment', 'comment.line.semicolon']]],
    ['il_cs_2_0', [['il_cs_2_0', 'keyword.other.version']]],
    ['dcl_literal l0, 2, -1', [['dcl_literal', 'storage.type.declaration'], ['l0', 'constant.other.literal'],
      ['2', 'constant.numeric'], ['-1', 'constant.numeric']]],
    ['func 1024', [['func', 'keyword.control.function'], ['1024', 'entity.name.function']]],
    ['  if_logicalnz r4.x', [['if_logicalnz', 'keyword.control'], ['r4', 'variable.other.register'],
      ['x', 'entity.other.component']]],
    ['uav_raw_load_id(10)_addr64 r5.x, r2.xy', [['uav_raw_load_id(10)_addr64', 'support.function.instruction'],
      ['r5', 'variable.other.register'], ['x', 'entity.other.component'], ['r2', 'variable.other.register'],
      ['xy', 'entity.other.component']]],
    ['imad r0.x, vTidInGrp, cb0[1]', [['imad', 'support.function.instruction'], ['r0', 'variable.other.register'],
      ['x', 'entity.other.component'], ['vTidInGrp', 'variable.language'], ['cb0', 'variable.parameter.buffer'],
      ['1', 'constant.numeric']]],
  ];
  for (const [line, expected] of cases) {
    assert.deepStrictEqual(paint(grammar, line), expected, line);
  }
});

test('every line of the examples begins with what the grammar knows', async () => {
  const grammar = await loadGrammar();
  const files = fs.readdirSync(path.join(SOURCES, 'examples'), { recursive: true }).filter(name => name.endsWith('.il'));
  assert.ok(files.length > 10);
  for (const file of files) {
    for (const line of fs.readFileSync(path.join(SOURCES, 'examples', file), 'utf8').split('\n')) {
      for (const [text, scope] of paint(grammar, line)) {
        assert.notStrictEqual(scope, 'source', `${text} in ${file}: ${line}`);
      }
    }
  }
});

test('the manifest names files that are there, and the code fits it', () => {
  const manifest = JSON.parse(fs.readFileSync(path.join(EXTENSION, 'package.json'), 'utf8'));
  const contributes = manifest.contributes;
  const files = [...contributes.grammars.map(one => one.path), ...contributes.snippets.map(one => one.path),
    ...contributes.languages.map(one => one.configuration), manifest.main];
  for (const file of files) {
    assert.ok(fs.existsSync(path.join(EXTENSION, file)), file);
  }
  assert.match(fs.readFileSync(path.join(SOURCES, 'CMakeLists.txt'), 'utf8'),
    new RegExp(`VERSION ${manifest.version.replaceAll('.', '\\.')}`));
  assert.match(fs.readFileSync(path.join(SOURCES, 'editors/emacs/kestrel-dap.el'), 'utf8'),
    new RegExp(`^;; Version: ${manifest.version.replaceAll('.', '\\.')}$`, 'm'));

  const registered = { commands: [], types: [] };
  const configuration = { get: name => contributes.configuration.properties[`kestrel.${name}`].default };
  const debug = Object.fromEntries(['registerDebugAdapterDescriptorFactory', 'registerDebugConfigurationProvider',
    'registerDebugAdapterTrackerFactory'].map(name => [name, (type, what) => {
    registered.types.push(type);
    registered[name] = what;
  }]));
  const editor = {
    debug,
    commands: { registerCommand: name => registered.commands.push(name) },
    workspace: { getConfiguration: () => configuration },
    window: { activeTextEditor: { document: { fileName: '/there/launch.json' } } },
    DebugAdapterExecutable: class {
      constructor(...words) { this.words = words; }
    },
  };
  const load = Module._load;
  Module._load = (name, ...rest) => (name === 'vscode' ? editor : load(name, ...rest));
  try {
    require(path.join(EXTENSION, manifest.main)).activate({ subscriptions: [] });
  } finally {
    Module._load = load;
  }
  assert.deepStrictEqual(registered.commands, contributes.commands.map(one => one.command));
  assert.ok(registered.types.every(type => type === contributes.debuggers[0].type));
  assert.deepStrictEqual(registered.registerDebugAdapterDescriptorFactory.createDebugAdapterDescriptor().words,
    ['kestrel', ['dap']]);
  const made = registered.registerDebugConfigurationProvider.resolveDebugConfiguration(undefined, {});
  assert.strictEqual(made.launchFile, '/there/launch.json');
});
