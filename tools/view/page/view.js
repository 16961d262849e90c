// The page: it draws what the session tells, and sends what the user wants.
'use strict';
let state = {};
let shown; // the last state whose stop has been drawn
let file;
let expression = ''; // that is shown; the field may be half typed
let watched = ''; // the element whose accesses are listed, likewise
let accesses = []; // that are listed

/// What the session couldn't do is thrown.
function checked(content) {
  if (content?.error !== undefined) {
    throw new Error(content.error);
  }
  return content;
}

async function ask(path, body) {
  const answer = await fetch(path, body === undefined ? {} : { method: 'POST', body });
  return checked(await answer.json());
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

let asked = 0; // pictures

async function refreshPicture() {
  const turn = ++asked;
  const cells = view.zoom > 1 ? 1024 : 512; // that many are seen at once
  const query = new URLSearchParams({ width: cells, height: cells });
  const from = element('since').value;
  if (element('lines').checked) {
    query.set('lines', '1');
  } else if (expression !== '') {
    query.set('expression', expression);
  }
  if (element('all').checked) {
    query.set('all', '1');
  }
  if (from !== '') {
    query.set('from', from - 1);
  }
  try {
    const answer = await askPicture(query);
    if (turn !== asked) {
      return; // another one has been asked for meanwhile
    }
    picture = { ...answer, from };
    paint();
    draw();
    showChanges(picture.changes ?? []);
    const figures = picture.kind === 'values' ? await ask(`figures?${query}`) : undefined;
    const course = element('across').checked && expression !== ''
      ? await ask(`course?${new URLSearchParams({ expression })}`) : { values: [] };
    if (turn !== asked) {
      return;
    }
    element('statistics').replaceChildren();
    if (figures !== undefined) {
      showStatistics(figures.statistics);
    }
    plotRow(figures?.row ?? { values: [] });
    plotCourse(course);
  } catch (error) {
    if (turn === asked) {
      complain(error);
    }
  }
}

/// A row of a table: texts, and after them a button.
function makeRow(texts, label, action) {
  const row = document.createElement('tr');
  for (const text of texts) {
    row.insertCell().textContent = text;
  }
  const button = document.createElement('button');
  button.textContent = label;
  button.addEventListener('click', action);
  row.insertCell().append(button);
  return row;
}

/// The work-items that have another value than at the stop that is compared with.
function showChanges(changes) {
  const text = value => (value === null ? 'none' : round(value));
  element('changes').replaceChildren(...changes.map(({ item, old, new: now }) =>
    makeRow([`work-item ${item}`, `${text(old)} → ${text(now)}`], 'Look', () => command(`workitem ${item}`))));
}

let askedAccesses = 0;

/// Who wrote and read an element, in order.
async function refreshAccesses() {
  const turn = ++askedAccesses;
  let found = { accesses: [], count: 0 };
  let told = '';
  element('written').textContent = '';
  if (watched !== '') {
    try {
      found = await ask(`accesses?${new URLSearchParams({ element: watched })}`);
      const more = found.count > found.accesses.length ? `, the first ${found.accesses.length} of them` : '';
      told = `${found.element}: ${found.count} accesses${more}, in a run from the launch on`;
    } catch (error) {
      told = error.message;
    }
  }
  if (turn !== askedAccesses) {
    return; // others have been asked for meanwhile
  }
  element('written').textContent = told;
  accesses = found.accesses;
  element('accesses').replaceChildren(...accesses.map(access => {
    const values = access.kind === 'read' ? access.value : `${access.before} → ${access.after}`;
    const place = access.source.replace(/.*[/]/, '') || `line ${access.line}`;
    const query = new URLSearchParams({ line: access.line, item: access.item, pass: access.pass });
    return makeRow([`work-item ${access.item}`, access.kind, values, place], 'Go there',
      () => ask(`access?${query}`, '').catch(complain));
  }));
}

/// The stops so far, as buttons, and as what can be compared with.
function showTimeLine({ stops, here, count }) {
  element('timeline').replaceChildren(...stops.map(([number, place, active]) => {
    const button = document.createElement('button');
    button.textContent = number;
    button.title = `stop ${number} of ${count}: ${place.replace(/.*[/]/, '')}, ${active} active`;
    button.tabIndex = number === (here ?? count) ? 0 : -1;
    if (number === here) {
      button.setAttribute('aria-current', 'step');
    }
    button.addEventListener('click', () => command(`goto ${number}`));
    return button;
  }));
  const current = element('timeline').querySelector('[aria-current]');
  if (current !== null) {
    element('timeline').scrollLeft = current.offsetLeft - element('timeline').clientWidth / 2;
  }
  const since = element('since');
  const wanted = since.value;
  since.replaceChildren(new Option('none', ''), ...stops.filter(([number]) => number !== here)
    .map(([number, place]) => new Option(`stop ${number}, ${place.replace(/.*[/]/, '')}`, number)));
  since.value = [...since.options].some(option => option.value === wanted) ? wanted : '';
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
  if (!state.busy && stop && state.shown !== shown) {
    const moved = element('focus').textContent !== `Work-item ${stop.focus.item}`;
    shown = state.shown;
    showVariables();
    showTimeLine(stop.timeline);
    await refreshSource();
    await refreshPicture();
    if (moved && watched !== '') {
      await refreshAccesses();
    }
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
element('form').addEventListener('change', () => {
  expression = element('expression').value.trim();
  refreshPicture();
});
element('writes').addEventListener('submit', event => {
  event.preventDefault();
  watched = element('element').value.trim();
  refreshAccesses();
});
element('timeline').addEventListener('keydown', event => {
  const next = { ArrowLeft: 'previousElementSibling', ArrowRight: 'nextElementSibling' }[event.key];
  event.target[next]?.focus();
});
element('borders').addEventListener('change', draw);
element('console').addEventListener('submit', event => {
  event.preventDefault();
  command(element('command').value.trim());
  element('command').value = '';
});

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
