// The page: it draws what the session tells, and sends what the user wants.
'use strict';
const element = id => document.getElementById(id);
const canvas = element('dispatch');
let state = {};
let picture;
let file;
let view = { x: 0, y: 0, zoom: 1 };
const image = document.createElement('canvas');

async function ask(path, body) {
  const answer = await fetch(path, body === undefined ? {} : { method: 'POST', body });
  const content = await answer.json();
  if (!answer.ok) {
    throw new Error(content.error);
  }
  return content;
}

function show(output) {
  if (element('output').textContent !== output) {
    element('output').textContent = output;
    element('output').scrollTop = element('output').scrollHeight;
  }
}

function complain(error) {
  element('legend').textContent = error.message;
}

async function command(text) {
  try {
    await ask('command', text);
  } catch (error) {
    complain(error);
  }
}

/// Blue for the lowest, through grey, to orange for the highest.
function colour(part) {
  const [from, to, share] = part < 0.5 ? [[49, 104, 189], [180, 180, 180], part * 2]
    : [[180, 180, 180], [230, 120, 30], part * 2 - 1];
  return from.map((c, n) => Math.round(c + (to[n] - c) * share));
}

/// The pixels of shades: nothing, and from the lowest to the highest value.
const shades = Uint32Array.from({ length: 256 }, (_, n) => {
  const [red, green, blue] = colour(Math.max(0, n - 1) / 254);
  return n === 0 ? 0 : (255 << 24 | blue << 16 | green << 8 | red) >>> 0;
});

function paint() {
  const rows = picture.rows * picture.slices;
  const expression = picture.expression !== undefined;
  const [low, high] = expression ? [picture.low, picture.high] : [0, 1];
  image.width = picture.columns;
  image.height = rows;
  const pixels = new ImageData(picture.columns, rows);
  const words = new Uint32Array(pixels.data.buffer);
  picture.shades.forEach((shade, n) => { words[n] = shades[shade]; });
  image.getContext('2d').putImageData(pixels, 0, 0);
  const block = picture.cell.reduce((product, n) => product * n, 1);
  element('legend').textContent = (expression ? `${picture.expression}: blue ${round(low)} to orange ${round(high)}`
    : `${picture.active} of ${picture.items} active, in orange`) + (block > 1 ? `; a cell is ${block} work-items` : '');
}

/// Pixels of the canvas for a cell.
function scale() {
  return Math.min(canvas.width / image.width, canvas.height / image.height) * view.zoom;
}

function draw() {
  canvas.width = canvas.clientWidth * devicePixelRatio;
  canvas.height = canvas.clientHeight * devicePixelRatio;
  const context = canvas.getContext('2d');
  context.imageSmoothingEnabled = false;
  const size = scale();
  context.drawImage(image, view.x, view.y, image.width * size, image.height * size);
  drawBorders(context, size);
  const focus = state.stop?.focus.item;
  if (picture !== undefined && focus !== undefined) {
    const [column, row] = findCell(focus);
    context.lineWidth = 2;
    context.strokeStyle = getComputedStyle(document.body).color;
    context.strokeRect(view.x + column * size, view.y + row * size, Math.max(4, size), Math.max(4, size));
  }
}

/// Lines between work-groups, where they are far enough from each other to be told apart.
function drawBorders(context, size) {
  if (picture === undefined || !element('borders').checked || state.local === undefined) {
    return;
  }
  const [across, down] = [state.local[0] / picture.cell[0], state.local[1] / picture.cell[1]];
  context.lineWidth = 1;
  context.strokeStyle = '#8888';
  context.beginPath();
  if (picture.wrapped) {
    // Where a row of cells goes on in the next one groups begin anywhere.
    for (let cell = 0; across * size >= 8 && cell < picture.columns * picture.rows; cell += across) {
      const [x, y] = [view.x + cell % picture.columns * size, view.y + Math.floor(cell / picture.columns) * size];
      context.moveTo(x, y);
      context.lineTo(x, y + size);
    }
  } else {
    const [width, height] = [image.width * size, image.height * size];
    for (let x = 0; across * size >= 8 && x <= width; x += across * size) {
      context.moveTo(view.x + x, view.y);
      context.lineTo(view.x + x, view.y + height);
    }
    for (let y = 0; down * size >= 8 && y <= height; y += down * size) {
      context.moveTo(view.x, view.y + y);
      context.lineTo(view.x + width, view.y + y);
    }
  }
  context.stroke();
}

/// The expression along the row of the work-item in focus, which a bar marks.
function plotRow(row) {
  const numbers = row.values.map(value => (typeof value === 'number' ? value : NaN));
  const known = numbers.filter(Number.isFinite);
  element('row').hidden = known.length < 2;
  if (known.length < 2) {
    return;
  }
  const [low, high] = known.reduce(([least, most], n) => [Math.min(least, n), Math.max(most, n)], [Infinity, -Infinity]);
  const plot = element('plot');
  plot.width = plot.clientWidth * devicePixelRatio;
  plot.height = plot.clientHeight * devicePixelRatio;
  const context = plot.getContext('2d');
  const x = n => 2 + n * (plot.width - 4) / (numbers.length - 1);
  const y = value => plot.height - 4 - (high > low ? (value - low) / (high - low) : 0.5) * (plot.height - 8);
  context.strokeStyle = '#8888';
  context.strokeRect(x(row.focus), 0, 1, plot.height);
  context.strokeStyle = context.fillStyle = 'rgb(230, 120, 30)';
  context.beginPath();
  let open = false; // whether the value before has a place
  numbers.forEach((value, n) => {
    if (Number.isFinite(value)) {
      open ? context.lineTo(x(n), y(value)) : context.moveTo(x(n), y(value));
      context.fillRect(x(n) - 1, y(value) - 1, 2, 2);
    }
    open = Number.isFinite(value);
  });
  context.stroke();
  const last = row.first + numbers.length - 1;
  element('caption').textContent = `${row.expression} from work-item ${row.first} to ${last}: ${round(low)} to ${round(high)}`;
  plot.setAttribute('aria-label', element('caption').textContent);
}

/// The cell of a work-item: where it is in rows of cells.
function findCell(item) {
  const [width, height] = extent();
  const [x, y, z] = [item % width, Math.floor(item / width) % height, Math.floor(item / (width * height))];
  const column = Math.floor(x / picture.cell[0]);
  if (picture.wrapped) {
    return [column % picture.columns, Math.floor(column / picture.columns)];
  }
  return [column, Math.floor(z / picture.cell[2]) * picture.rows + Math.floor(y / picture.cell[1])];
}

function extent() {
  return picture.wrapped ? [state.items, 1] : [picture.columns * picture.cell[0], picture.rows * picture.cell[1]];
}

function itemAt(event) {
  const box = canvas.getBoundingClientRect();
  const column = Math.floor(((event.clientX - box.left) * devicePixelRatio - view.x) / scale());
  const row = Math.floor(((event.clientY - box.top) * devicePixelRatio - view.y) / scale());
  if (column < 0 || row < 0 || column >= image.width || row >= image.height) {
    return undefined;
  }
  if (picture.wrapped) {
    return Math.min(state.items - 1, (row * picture.columns + column) * picture.cell[0]);
  }
  const [width, height] = extent();
  const [y, z] = [row % picture.rows * picture.cell[1], Math.floor(row / picture.rows) * picture.cell[2]];
  return Math.min(state.items - 1, (z * height + y) * width + column * picture.cell[0]);
}

/// A number with as many digits as one reads.
const round = number => (Number.isInteger(number) || typeof number !== 'number' ? number : Number(number.toPrecision(6)));

/// Numbers, and a bar for each tenth between the lowest and the highest value.
function showStatistics(found) {
  const text = document.createElement('span');
  text.textContent = ['count', 'distinct', 'nan', 'min', 'mean', 'max'].map(name => `${name} ${round(found[name])}`).join(', ');
  const bars = document.createElement('canvas');
  const most = Math.max(1, ...found.histogram);
  bars.className = 'bars';
  bars.setAttribute('role', 'img');
  bars.setAttribute('aria-label', `histogram: ${found.histogram.join(', ')}`);
  bars.width = found.histogram.length;
  bars.height = 40;
  const context = bars.getContext('2d');
  found.histogram.forEach((count, n) => {
    context.fillStyle = `rgb(${colour(found.histogram.length > 1 ? n / (found.histogram.length - 1) : 0.5)})`;
    const height = count === 0 ? 0 : Math.max(1, Math.round(40 * count / most));
    context.fillRect(n, 40 - height, 1, height);
  });
  element('statistics').replaceChildren(text, bars);
}

/// A picture: a line of text with what it is, and a byte for each cell.
async function askPicture(query) {
  const answer = await fetch(`cells?${query}`);
  if (!answer.ok) {
    throw new Error((await answer.json()).error);
  }
  const bytes = new Uint8Array(await answer.arrayBuffer());
  const end = bytes.indexOf(10);
  return { ...JSON.parse(new TextDecoder().decode(bytes.subarray(0, end))), shades: bytes.subarray(end + 1) };
}

async function refreshPicture() {
  const expression = element('expression').value.trim();
  const cells = view.zoom > 1 ? 1024 : 512; // that many are seen at once
  const query = new URLSearchParams({ expression, width: cells, height: cells });
  if (element('all').checked) {
    query.set('all', '1');
  }
  try {
    picture = await askPicture(query);
    paint();
    draw();
    element('statistics').replaceChildren();
    element('row').hidden = true;
    if (expression !== '') {
      const found = await ask(`statistics?${query}`);
      showStatistics(found);
      const row = await ask(`row?${new URLSearchParams({ expression })}`);
      element('row').hidden = false; // a plot has its size when it is seen
      plotRow(row);
    }
  } catch (error) {
    complain(error);
  }
}

async function refreshSource() {
  const list = element('source');
  if (file === undefined || file.file !== state.stop.file) {
    file = await ask('source');
    element('file').textContent = file.file || 'IL';
    list.replaceChildren(...file.lines.map((text, n) => {
      const line = document.createElement('li');
      const number = document.createElement('button');
      number.textContent = n + file.first;
      number.title = 'a breakpoint here';
      number.addEventListener('click', () => command(`break ${n + file.first}`));
      line.append(number, document.createElement('output'), document.createElement('span'));
      line.lastChild.textContent = text;
      return line;
    }));
  }
  for (const margin of list.querySelectorAll('output')) {
    margin.textContent = '';
  }
  for (const [line, stops, share] of state.stop.visits) {
    const margin = list.children[line - file.first]?.querySelector('output');
    if (margin) {
      margin.textContent = `${stops} × ${Math.round(100 * share)} %`;
      margin.title = `${stops} stops, ${round(100 * share)} % of the work-items active at them`;
    }
  }
  list.querySelector('.here')?.classList.remove('here');
  const here = list.children[state.stop.line - file.first];
  here?.classList.add('here');
  if (here !== undefined) {
    const top = here.offsetTop - list.offsetTop;
    const seen = top >= list.scrollTop && top + here.clientHeight <= list.scrollTop + list.clientHeight;
    list.scrollTop = seen ? list.scrollTop : top - list.clientHeight / 2;
  }
}

function showVariables() {
  element('focus').textContent = `Work-item ${state.stop.focus.item}`;
  element('variables').replaceChildren(...state.stop.variables.map(variable => {
    const row = document.createElement('tr');
    for (const text of [variable.name, variable.value, variable.type]) {
      row.insertCell().textContent = text;
    }
    return row;
  }));
}

async function onState(next) {
  state = next;
  show(state.output);
  element('title').textContent = state.kernel ?? 'Kestrel';
  const stop = state.stop;
  element('status').textContent = state.busy ? state.progress || 'running …'
    : stop ? `${stop.function}, line ${stop.line}: ${stop.active} of ${state.items} active` : 'not running';
  for (const button of document.querySelectorAll('[data-command]')) {
    button.disabled = state.busy || (!state.live && button.dataset.command !== 'start');
  }
  if (!state.busy && stop) {
    showVariables();
    await refreshSource();
    await refreshPicture();
  }
}

const keys = { F10: 'next', F11: 'step', F8: 'continue', 'Shift+F10': 'reverse-next', 'Shift+F5': 'reverse-continue' };
document.addEventListener('keydown', event => {
  const name = keys[(event.shiftKey ? 'Shift+' : '') + event.key];
  if (name !== undefined) {
    event.preventDefault();
    command(name);
  }
});
for (const button of document.querySelectorAll('[data-command]')) {
  button.addEventListener('click', () => command(button.dataset.command));
}
element('pause').addEventListener('click', () => ask('pause', ''));
element('form').addEventListener('submit', event => event.preventDefault());
element('form').addEventListener('change', refreshPicture);
element('borders').addEventListener('change', draw);
element('console').addEventListener('submit', event => {
  event.preventDefault();
  command(element('command').value.trim());
  element('command').value = '';
});

let dragged;
canvas.addEventListener('pointerdown', event => { dragged = { x: event.clientX, y: event.clientY, moved: false }; });
canvas.addEventListener('pointermove', event => {
  if (dragged !== undefined && event.buttons !== 0) {
    dragged.moved = dragged.moved || Math.hypot(event.clientX - dragged.x, event.clientY - dragged.y) > 3;
    view.x += event.movementX * devicePixelRatio;
    view.y += event.movementY * devicePixelRatio;
    draw();
  }
});
canvas.addEventListener('pointerup', event => {
  const item = dragged?.moved ? undefined : itemAt(event);
  dragged = undefined;
  if (item !== undefined) {
    command(`workitem ${item}`);
  }
});
canvas.addEventListener('wheel', event => {
  event.preventDefault();
  zoomBy(event.deltaY < 0 ? 1.25 : 0.8, event.offsetX * devicePixelRatio, event.offsetY * devicePixelRatio);
}, { passive: false });
canvas.addEventListener('keydown', event => {
  const steps = { ArrowLeft: [40, 0], ArrowRight: [-40, 0], ArrowUp: [0, 40], ArrowDown: [0, -40] };
  if (event.key === '+' || event.key === '-') {
    zoomBy(event.key === '+' ? 1.25 : 0.8, canvas.width / 2, canvas.height / 2);
  } else if (steps[event.key] !== undefined) {
    view.x += steps[event.key][0];
    view.y += steps[event.key][1];
    draw();
  }
});
function zoomBy(factor, x, y) {
  const zoom = Math.min(256, Math.max(1, view.zoom * factor));
  const closer = (zoom > 1) !== (view.zoom > 1);
  const by = zoom / view.zoom;
  view = zoom === 1 ? { x: 0, y: 0, zoom } : { x: x - (x - view.x) * by, y: y - (y - view.y) * by, zoom };
  draw();
  if (closer) {
    refreshPicture();
  }
}
addEventListener('resize', draw);

// States come faster than they can be drawn: only the last one counts.
let waiting;
let drawing = false;
new EventSource('events').onmessage = async event => {
  waiting = JSON.parse(event.data);
  if (drawing) {
    return;
  }
  drawing = true;
  while (waiting !== undefined) {
    const next = waiting;
    waiting = undefined;
    await onState(next).catch(complain);
  }
  drawing = false;
};
