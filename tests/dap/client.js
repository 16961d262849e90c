// A client of the debug adapter that checks each message it gets against the protocol's schema.
'use strict';
const assert = require('node:assert');
const fs = require('node:fs');
const path = require('node:path');
const Ajv = require('ajv');
const { DebugClient } = require('@vscode/debugadapter-testsupport');

const ADAPTER = process.env.KESTREL;
const SOURCES = process.env.KESTREL_SOURCES;
const PROGRAMS = process.env.KESTREL_PROGRAMS;

const schema = JSON.parse(fs.readFileSync(path.join(process.env.KESTREL_DAP_CLIENT, 'schema.json'), 'utf8'));
const ajv = new Ajv({ strict: false, logger: false });
ajv.addSchema(schema, 'protocol');
const checks = new Map();

function capitalize(name) {
  return name.charAt(0).toUpperCase() + name.slice(1);
}

/// What is wrong with a message; null if nothing is.
function complaint(message) {
  const custom = message.type === 'response' && message.command.includes('/');
  const known = name => schema.definitions[`DebugProtocol.${name}`] !== undefined;
  let name = message.type === 'event' ? `${capitalize(message.event)}Event` : `${capitalize(message.command)}Response`;
  if (message.type === 'response' && !message.success) {
    name = 'ErrorResponse';
  } else if (custom) {
    name = 'Response';
  }
  if (!known(name)) {
    return `the protocol has no ${name}`;
  }
  const definition = `protocol#/definitions/DebugProtocol.${name}`;
  if (!checks.has(definition)) {
    checks.set(definition, ajv.compile({ $ref: definition }));
  }
  const check = checks.get(definition);
  return check(message) ? null : `${name}: ${JSON.stringify(check.errors[0])} in ${JSON.stringify(message)}`;
}

class Client extends DebugClient {
  constructor() {
    super(ADAPTER, 'dap', 'kestrel');
    this.complaints = [];
    this.events = [];
    this.told = 0; // events that next() has given
    this.checked = 0;
    this.lastSeq = 0;
  }

  dispatch(text) {
    const message = JSON.parse(text);
    const wrong = complaint(message);
    if (wrong !== null) {
      this.complaints.push(wrong);
    }
    if (message.seq !== this.lastSeq + 1) {
      this.complaints.push(`the number ${message.seq} comes after ${this.lastSeq}`);
    }
    this.lastSeq = message.seq;
    this.checked++;
    if (message.type === 'event') {
      this.events.push(message);
      this.emit('any event', message);
    }
    super.dispatch(text);
  }

  /// The next event of a kind after the last one that was given. Events of other kinds before it are skipped.
  async next(kind, timeout = 20000) {
    const limit = Date.now() + timeout;
    for (;;) {
      for (; this.told < this.events.length; this.told++) {
        if (this.events[this.told].event === kind) {
          return this.events[this.told++].body;
        }
      }
      await new Promise((resolve, reject) => {
        const timer = setTimeout(() => reject(new Error(`no event ${kind}: ${JSON.stringify(this.events.slice(-3))}`)),
          Math.max(1, limit - Date.now())).unref();
        this.once('any event', () => { clearTimeout(timer); resolve(); });
      });
    }
  }

  output(category) {
    return this.events.filter(event => event.event === 'output' && event.body.category === category)
      .map(event => event.body.output).join('');
  }

  /// Launches with breakpoints at lines of a source, and lets the launch begin. \return the breakpoints
  async begin(launch, source, breakpoints) {
    await this.initializeRequest({
      adapterID: 'kestrel', linesStartAt1: true, columnsStartAt1: true, pathFormat: 'path',
      supportsProgressReporting: true, supportsInvalidatedEvent: true,
    });
    await this.launchRequest(launch);
    await this.next('initialized');
    let set;
    if (source !== undefined) {
      set = (await this.setBreakpointsRequest({ source, breakpoints })).body.breakpoints;
    }
    await this.configurationDoneRequest();
    return set;
  }

  async top() {
    const stack = await this.stackTraceRequest({ threadId: this.thread ?? 1 });
    return stack.body.stackFrames[0];
  }

  async scope(name) {
    const scopes = await this.scopesRequest({ frameId: (await this.top()).id });
    const found = scopes.body.scopes.find(scope => scope.name === name);
    assert.ok(found, `there is no scope ${name}`);
    return (await this.variablesRequest({ variablesReference: found.variablesReference })).body.variables;
  }

  /// The text with which a request is refused; undefined if it isn't.
  async refusal(command, args) {
    try {
      await this.send(command, args);
    } catch (error) {
      return error.message;
    }
    return undefined;
  }

  async end() {
    await this.disconnectRequest();
    assert.deepStrictEqual(this.complaints, []);
    return this.checked;
  }
}

/// Runs a test with a client of its own, which is ended whatever happens.
async function withClient(test) {
  const client = new Client();
  await client.start();
  try {
    await test(client);
    await client.end();
  } finally {
    client.stopAdapter();
  }
}

const example = name => path.join(SOURCES, 'examples', name);

module.exports = { Client, withClient, example, ADAPTER, PROGRAMS, complaint };
