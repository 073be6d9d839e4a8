// What every page shares: the header, numbers and cells as the station shows them.
'use strict';

function header(here) {
  const pages = [['/', 'Station'], ['/results.html', 'Results'], ['/spc.html', 'SPC']];
  document.body.insertAdjacentHTML('afterbegin', '<header><h1>HYTORC station <span id="station"></span></h1>' +
    pages.map(([href, name]) => `<a href="${href}"${href === here ? ' class="here"' : ''}>${name}</a>`).join('') +
    '</header>');
  fetch('/api/status').then(r => r.json()).then(s => { document.getElementById('station').textContent = s.station || ''; });
}

// A figure, or "—" where it is undefined (never a made-up number).
function figure(value, decimals = 2) {
  return value === null || value === undefined ? '—' : Number(value).toFixed(decimals);
}

function text(value) {
  return value === null || value === undefined || value === '' ? '—' : String(value);
}

function cell(tag, content, cls) {
  const element = document.createElement(tag);
  element.textContent = content;
  if (cls) element.className = cls;
  return element;
}

function statusClass(status) {
  return /^(passed|ok)$/i.test(status || '') ? 'ok' : 'nok';
}

// One table row of a result, for `keys` in order.
function resultRow(row, keys) {
  const tr = document.createElement('tr');
  for (const key of keys)
    tr.appendChild(cell('td', text(row[key]), key === 'status' ? statusClass(row[key]) : ''));
  return tr;
}

async function getJson(url) {
  const response = await fetch(url);
  const body = await response.json();
  if (!response.ok) throw new Error(body.error || response.statusText);
  return body;
}
