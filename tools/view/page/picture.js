// The picture of the dispatch: its colours, and where it is looked at.
'use strict';
const element = id => document.getElementById(id);
const canvas = element('dispatch');
const image = document.createElement('canvas');
let picture;
let view = { x: 0, y: 0, zoom: 1 };

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

/// Colours that are far from each other one after the other, for what has no order.
const hues = Uint32Array.from({ length: 256 }, (_, n) => {
  const part = n * 0.618 % 1 * 6;
  const [red, green, blue] = [5, 3, 1].map(turn => {
    const k = (turn + part) % 6;
    return Math.round(220 - 160 * Math.max(0, Math.min(k, 4 - k, 1)));
  });
  return n === 0 ? 0 : (255 << 24 | blue << 16 | green << 8 | red) >>> 0;
});

function paint() {
  image.width = picture.columns;
  image.height = picture.rows * picture.slices;
  const pixels = new ImageData(image.width, image.height);
  const words = new Uint32Array(pixels.data.buffer);
  const table = picture.kind === 'lines' ? hues : shades;
  for (let n = 0; n < words.length; ++n) {
    words[n] = table[picture.shades[n]];
  }
  image.getContext('2d').putImageData(pixels, 0, 0);
  showLegend();
}

/// What the colours mean.
function showLegend() {
  const block = picture.cell.reduce((product, n) => product * n, 1);
  const [low, high] = [round(picture.low), round(picture.high)];
  const texts = {
    mask: () => `${picture.active} of ${picture.items} active, in orange`,
    values: () => `${picture.expression}: blue ${low} to orange ${high}`,
    changes: () => `${picture.changed} of ${picture.items} have another ${picture.expression} than at stop ${picture.from}`
      + (picture.low === null ? '' : `: blue by ${low} to orange by ${high}`),
    lines: () => 'the line at which each was active last: ',
  };
  element('legend').textContent = texts[picture.kind]() + (block > 1 ? `; a cell is ${block} work-items` : '');
  for (const [n, { file: name, line, count }] of (picture.lines ?? []).entries()) {
    const entry = document.createElement('span');
    const sample = document.createElement('canvas');
    sample.width = sample.height = 1;
    sample.className = 'sample';
    const pixel = new ImageData(1, 1);
    new Uint32Array(pixel.data.buffer)[0] = hues[n + 1];
    sample.getContext('2d').putImageData(pixel, 0, 0);
    entry.append(sample, ` ${name.replace(/.*[/]/, '')}:${line} ${count}`);
    element('legend').append(' ', entry);
  }
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

/// A picture: a line of text with what it is, and a byte for each cell.
async function askPicture(query) {
  const answer = await fetch(`cells?${query}`);
  if (answer.headers.get('Content-Type') === 'application/json') {
    checked(await answer.json());
  }
  const bytes = new Uint8Array(await answer.arrayBuffer());
  const end = bytes.indexOf(10);
  return { ...JSON.parse(new TextDecoder().decode(bytes.subarray(0, end))), shades: bytes.subarray(end + 1) };
}

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
