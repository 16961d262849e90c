// Plots and figures of an expression.
'use strict';

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

/// Numbers as a line, where they are known; a bar marks one of them.
/// \return the least and the largest; nothing if there is nothing to plot
function plotLine(chart, values, marked) {
  const numbers = values.map(value => (typeof value === 'number' ? value : NaN));
  const known = numbers.filter(Number.isFinite);
  chart.parentElement.hidden = known.length < 2; // it has its size when it is seen
  if (known.length < 2) {
    return undefined;
  }
  const [low, high] = known.reduce(([least, most], n) => [Math.min(least, n), Math.max(most, n)], [Infinity, -Infinity]);
  chart.width = chart.clientWidth * devicePixelRatio;
  chart.height = chart.clientHeight * devicePixelRatio;
  const context = chart.getContext('2d');
  const x = n => 2 + n * (chart.width - 4) / (numbers.length - 1);
  const y = value => chart.height - 4 - (high > low ? (value - low) / (high - low) : 0.5) * (chart.height - 8);
  context.strokeStyle = '#8888';
  context.strokeRect(x(marked), 0, 1, chart.height);
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
  return [low, high];
}

function caption(id, text) {
  element(id).parentElement.querySelector('figcaption').textContent = text;
  element(id).setAttribute('aria-label', text);
}

/// The expression along the row of the work-item in focus.
function plotRow(row) {
  const found = plotLine(element('plot'), row.values, row.focus);
  if (found !== undefined) {
    const last = row.first + row.values.length - 1;
    caption('plot', `${picture.expression} from work-item ${row.first} to ${last}: ${found.map(round).join(' to ')}`);
  }
}

/// The expression of the work-item in focus at the stops of the time line.
function plotCourse(course) {
  const found = plotLine(element('course'), course.values, state.stop.timeline.here - 1 - course.first);
  if (found !== undefined) {
    const [first, last] = [course.first + 1, course.first + course.values.length];
    caption('course', `${course.expression} of work-item ${state.stop.focus.item} from stop ${first} to ${last}: ${found.map(round).join(' to ')}`);
  }
}
