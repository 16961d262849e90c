// The extension's side of a debug session: it starts `kestrel dap`, and keeps the grid up to date at each stop.
'use strict';
const path = require('path');
const vscode = require('vscode');

const setting = name => vscode.workspace.getConfiguration('kestrel').get(name);

/// Starts the adapter of a session.
const adapters = {
  createDebugAdapterDescriptor() {
    return new vscode.DebugAdapterExecutable(setting('path'), ['dap']);
  },
};

/// Without a configuration, makes one for the launch file that is open.
const configurations = {
  resolveDebugConfiguration(folder, configuration) {
    if (configuration.type || configuration.request || configuration.name) {
      return configuration;
    }
    const editor = vscode.window.activeTextEditor;
    if (editor === undefined || path.extname(editor.document.fileName) !== '.json') {
      vscode.window.showInformationMessage('Open a launch file (JSON), or say in launch.json what is debugged.');
      return undefined;
    }
    return {
      type: 'kestrel', request: 'launch', name: 'Debug a launch file', launchFile: editor.document.fileName,
      stopOnEntry: true,
    };
  },
};

/// The panel that shows the dispatch. There is one, for the session that stopped last or was active when it was shown.
class Grid {
  constructor(context, session) {
    this.session = session;
    this.expression = setting('gridExpression');
    this.panel = vscode.window.createWebviewPanel('kestrelGrid', 'Dispatch', vscode.ViewColumn.Beside, {
      enableScripts: true,
      localResourceRoots: [vscode.Uri.joinPath(context.extensionUri, 'media')],
    });
    this.panel.webview.html = this.makePage(context);
    this.panel.webview.onDidReceiveMessage(message => this.onMessage(message));
  }

  makePage(context) {
    const webview = this.panel.webview;
    const file = name => webview.asWebviewUri(vscode.Uri.joinPath(context.extensionUri, 'media', name));
    return `<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta http-equiv="Content-Security-Policy"
 content="default-src 'none'; style-src ${webview.cspSource}; script-src ${webview.cspSource};">
<link rel="stylesheet" href="${file('grid.css')}">
<title>Dispatch</title>
</head>
<body>
<form id="form"><label>Expression <input id="expression" placeholder="active work-items" spellcheck="false"></label>
<label><input id="all" type="checkbox"> those too that aren't active</label></form>
<p id="legend" role="status"></p>
<canvas id="canvas" tabindex="0" aria-label="The dispatch, a cell for a work-item or a block of them"></canvas>
<script src="${file('grid.js')}"></script>
</body>
</html>`;
  }

  async onMessage(message) {
    if (message.kind === 'show') {
      this.expression = message.expression;
      this.all = message.all;
      await this.refresh();
    } else if (message.kind === 'focus') {
      try {
        await this.session.customRequest('kestrel/focus', { item: message.item });
      } catch (error) {
        vscode.window.showErrorMessage(error.message);
      }
    }
  }

  async refresh() {
    const size = { width: 256, height: 256 };
    try {
      const picture = this.expression
        ? await this.session.customRequest('kestrel/grid', { expression: this.expression, all: Boolean(this.all), ...size })
        : await this.session.customRequest('kestrel/mask', size);
      this.panel.webview.postMessage({ kind: 'picture', expression: this.expression, picture });
    } catch (error) {
      this.panel.webview.postMessage({ kind: 'error', text: error.message });
    }
  }
}

async function focus() {
  const text = await vscode.window.showInputBox({ prompt: 'A work-item: its number, or its place as in 3, 4' });
  const numbers = (text ?? '').split(/[\s,()]+/).filter(word => word !== '').map(Number);
  const session = vscode.debug.activeDebugSession;
  if (numbers.length === 0 || session === undefined) {
    return;
  }
  try {
    await session.customRequest('kestrel/focus', { item: numbers.length === 1 ? numbers[0] : numbers });
  } catch (error) {
    vscode.window.showErrorMessage(error.message);
  }
}

function activate(context) {
  let grid;
  const trackers = {
    createDebugAdapterTracker(session) {
      return {
        onDidSendMessage(message) {
          if (grid !== undefined && message.type === 'event' && message.event === 'stopped') {
            grid.session = session;
            // This is called before the editor handles the stop; requests have to come after that.
            setImmediate(() => grid?.refresh());
          }
        },
      };
    },
  };
  const showGrid = () => {
    const session = vscode.debug.activeDebugSession;
    if (session === undefined || session.type !== 'kestrel') {
      return;
    }
    if (grid === undefined) {
      grid = new Grid(context, session);
      grid.panel.onDidDispose(() => { grid = undefined; });
    }
    grid.session = session;
    grid.panel.reveal();
    grid.refresh();
  };
  context.subscriptions.push(
    vscode.debug.registerDebugAdapterDescriptorFactory('kestrel', adapters),
    vscode.debug.registerDebugConfigurationProvider('kestrel', configurations),
    vscode.debug.registerDebugAdapterTrackerFactory('kestrel', trackers),
    vscode.commands.registerCommand('kestrel.showGrid', showGrid),
    vscode.commands.registerCommand('kestrel.focus', focus));
}

module.exports = { activate };
