// Draws the cells that the extension sends, and tells it which work-item is clicked.
'use strict';
const vscode = acquireVsCodeApi();
const canvas = document.getElementById('canvas');
const legend = document.getElementById('legend');
let shown;

/// Blue for the lowest, through grey, to orange for the highest; what has no value stays empty.
function colour(part) {
  const low = [49, 104, 189];
  const high = [230, 120, 30];
  const middle = [180, 180, 180];
  const [from, to, share] = part < 0.5 ? [low, middle, part * 2] : [middle, high, part * 2 - 1];
  return `rgb(${from.map((c, n) => Math.round(c + (to[n] - c) * share)).join(',')})`;
}

function draw({ picture, expression }) {
  shown = picture;
  const rows = picture.rows * picture.slices;
  const size = Math.max(1, Math.min(16, Math.floor(1024 / Math.max(picture.columns, rows))));
  canvas.width = picture.columns * size;
  canvas.height = rows * size;
  const context = canvas.getContext('2d');
  const low = expression ? picture.low : 0;
  const high = expression ? picture.high : 1;
  picture.cells.forEach((cell, n) => {
    const value = expression ? cell : cell / picture.sizes[n];
    if (typeof value === 'number') {
      context.fillStyle = colour(high > low ? (value - low) / (high - low) : 0.5);
      context.fillRect((n % picture.columns) * size, Math.floor(n / picture.columns) * size, size, size);
    }
  });
  const cell = picture.cell.reduce((product, n) => product * n, 1);
  legend.textContent = (expression ? `${expression}: ${low} to ${high}` : `${picture.active} of ${picture.items} active`) +
    (cell > 1 ? `; a cell is ${cell} work-items` : '');
}

canvas.addEventListener('click', event => {
  if (shown === undefined) {
    return;
  }
  const box = canvas.getBoundingClientRect();
  const column = Math.floor((event.clientX - box.left) / box.width * shown.columns);
  const row = Math.floor((event.clientY - box.top) / box.height * shown.rows * shown.slices);
  if (shown.wrapped) {
    vscode.postMessage({ kind: 'focus', item: Math.min(shown.items - 1, (row * shown.columns + column) * shown.cell[0]) });
    return;
  }
  vscode.postMessage({
    kind: 'focus',
    item: [column * shown.cell[0], row % shown.rows * shown.cell[1], Math.floor(row / shown.rows) * shown.cell[2]],
  });
});

document.getElementById('form').addEventListener('submit', event => event.preventDefault());
document.getElementById('form').addEventListener('change', () => {
  vscode.postMessage({
    kind: 'show',
    expression: document.getElementById('expression').value.trim(),
    all: document.getElementById('all').checked,
  });
});

window.addEventListener('message', event => {
  if (event.data.kind === 'picture') {
    draw(event.data);
  } else {
    legend.textContent = event.data.text;
  }
});
