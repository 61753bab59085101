// The inspector page: shows what the service receives as it arrives (server-sent events from
// /inspector/events) and posts registry and outage changes. Everything received is shown with
// textContent, never parsed as HTML.
'use strict';

const kShownAtMost = 1000;
let lastSequence = -1;
let shownKeys = '';
let shownVersion = 0;  // a POST's answer may arrive after a newer state from the stream
let outage = { failNext: 0, downUntil: 0, failStatus: 503, retryAfterSeconds: null };

function $(id) { return document.getElementById(id); }

function el(tag, text, className) {
  const node = document.createElement(tag);
  if (text !== undefined) node.textContent = text;
  if (className) node.className = className;
  return node;
}

function cellText(value) { return typeof value === 'string' ? value : JSON.stringify(value); }

function table(columns, rows, className) {
  const result = el('table', undefined, className);
  const head = result.createTHead().insertRow();
  for (const name of columns) head.appendChild(el('th', name));
  const body = result.createTBody();
  for (const cells of rows) {
    const row = body.insertRow();
    for (const cell of cells) row.appendChild(el('td', cell));
  }
  return result;
}

// One row per member, one column per event: a report usually carries one event.
function eventsTable(events) {
  const objects = events.map((event) => (event && typeof event === 'object' ? event : {}));
  const members = [...new Set(objects.flatMap((event) => Object.keys(event)))];
  const columns = ['Member', ...objects.map((_, index) => `Event ${index + 1}`)];
  const rows = members.map((name) => [name, ...objects.map((event) => (name in event ? cellText(event[name]) : ''))]);
  return table(columns, rows, 'events');
}

function folded(summary, content) {
  const details = el('details');
  details.append(el('summary', summary), content);
  return details;
}

function checkNote(problems) {
  if (problems.length === 0) return el('p', 'Report as expected.', 'fine');
  const list = el('ul', undefined, 'problems');
  for (const problem of problems) list.appendChild(el('li', problem));
  return list;
}

function requestCard(entry) {
  const card = el('article', undefined, 'request');
  card.dataset.path = entry.path;
  const names = (entry.events || []).map((event) => (event && typeof event.event === 'string' ? event.event : ''));
  card.dataset.events = JSON.stringify(names);
  const title = el('h3');
  title.append(el('span', new Date(entry.time).toLocaleTimeString(), 'time'), el('span', entry.method, 'method'),
    el('span', entry.path + (entry.query ? '?' + entry.query : ''), 'path'), el('span', String(entry.status), 'status'));
  card.appendChild(title);
  if (entry.problems) {
    card.classList.toggle('flagged', entry.problems.length > 0);
    card.appendChild(checkNote(entry.problems));
  }
  if (entry.events) card.appendChild(eventsTable(entry.events));
  card.appendChild(folded(`Headers (${entry.headers.length})`, table(['Name', 'Value'], entry.headers, 'headers')));
  if (entry.body) card.appendChild(folded(`Body (${entry.body.length} characters)`, el('pre', entry.body)));
  return card;
}

function passesFilters(card) {
  const endpoint = $('endpoint').value;
  const eventName = $('event-name').value.trim();
  if (endpoint && card.dataset.path !== endpoint) return false;
  return !eventName || JSON.parse(card.dataset.events).some((name) => name.includes(eventName));
}

function showCount() {
  const list = $('requests');
  $('count').textContent = `${list.querySelectorAll(':scope > :not([hidden])').length} of ${list.children.length} requests`;
}

function applyFilters() {
  for (const card of $('requests').children) card.hidden = !passesFilters(card);
  showCount();
}

function noteEndpoint(path) {
  const choices = $('endpoint');
  if ([...choices.options].some((option) => option.value === path)) return;
  const option = el('option', path);
  option.value = path;
  choices.appendChild(option);
}

function addRequest(entry) {
  if (entry.seq <= lastSequence) return;  // sent again after a reconnection
  lastSequence = entry.seq;
  noteEndpoint(entry.path);
  const list = $('requests');
  const card = requestCard(entry);
  card.hidden = !passesFilters(card);
  list.prepend(card);
  while (list.children.length > kShownAtMost) list.lastChild.remove();
  showCount();
}

async function post(path, body) {
  $('message').textContent = 'Saving…';
  try {
    const answer = await fetch(path, { method: 'POST', headers: { 'Content-Type': 'application/json' },
      body: JSON.stringify(body) });
    const result = await answer.json();
    if (!answer.ok) throw new Error(result.error);
    $('message').textContent = 'Saved.';
    showState(result);
  } catch (error) {
    $('message').textContent = `Not saved: ${error.message}`;
  }
}

// The answer's kill switch "k": true or false, or null when the answer is not a JSON object.
function killSwitchOf(body) {
  try {
    const members = JSON.parse(body);
    return members && typeof members === 'object' && !Array.isArray(members) ? members.k === true : null;
  } catch {
    return null;
  }
}

function keyRow(body, key, answer) {
  const row = body.insertRow();
  row.dataset.key = key;
  row.append(el('td', key), el('td', String(answer.status)), el('td', answer.body, 'answer'));
  const killed = killSwitchOf(answer.body);
  const kill = el('button', killed ? 'Turn off' : 'Turn on', 'kill-switch');
  kill.disabled = killed === null;
  kill.addEventListener('click', () => post('/inspector/registry', { key, killSwitch: !killed }));
  const status = el('input');
  Object.assign(status, { type: 'number', min: 100, max: 599, value: answer.status });
  const set = el('button', 'Set', 'set-status');
  set.addEventListener('click', () => post('/inspector/registry', { key, status: Number(status.value) }));
  const killCell = el('td', killed ? 'on ' : 'off ');
  killCell.appendChild(kill);
  const statusCell = el('td');
  statusCell.append(status, set);
  row.append(killCell, statusCell);
}

function describeOutage() {
  const parts = [];
  const downFor = Math.ceil((outage.downUntil - Date.now()) / 1000);
  if (outage.failNext > 0) parts.push(`failing the next ${outage.failNext} tracking requests`);
  if (downFor > 0) parts.push(`down for ${downFor} s more`);
  if (parts.length === 0) return 'No outage.';
  const retry = outage.retryAfterSeconds === null ? '' : ` with Retry-After: ${outage.retryAfterSeconds}`;
  return `Outage: ${parts.join(', ')}, answering ${outage.failStatus}${retry}.`;
}

function showState(state) {
  if (state.version < shownVersion) return;
  shownVersion = state.version;
  outage = { ...state.outage, downUntil: Date.now() + state.outage.downForSeconds * 1000 };
  $('outage-now').textContent = describeOutage();
  const keysText = JSON.stringify(state.keys);
  if (keysText === shownKeys) return;  // keep what the engineer is typing
  shownKeys = keysText;
  const body = $('keys').tBodies[0];
  body.replaceChildren();
  for (const [key, answer] of Object.entries(state.keys)) keyRow(body, key, answer);
}

function stageOutage(submitted) {
  submitted.preventDefault();
  const form = new FormData($('outage'));
  const number = (name) => Number(form.get(name));
  const retryAfter = form.get('retryAfterSeconds');
  post('/inspector/outage', { failNext: number('failNext'), downForSeconds: number('downForSeconds'),
    failStatus: number('failStatus'), retryAfterSeconds: retryAfter === '' ? null : Number(retryAfter) });
}

function connect() {
  const events = new EventSource('/inspector/events');
  events.addEventListener('request', (message) => addRequest(JSON.parse(message.data)));
  events.addEventListener('state', (message) => showState(JSON.parse(message.data)));
  events.addEventListener('open', () => {
    $('connection').textContent = 'live';
    shownVersion = 0;  // a restarted service numbers its states from the start again
  });
  events.addEventListener('error', () => { $('connection').textContent = 'reconnecting…'; });
}

$('endpoint').addEventListener('change', applyFilters);
$('event-name').addEventListener('input', applyFilters);
$('outage').addEventListener('submit', stageOutage);
connect();
setInterval(() => { $('outage-now').textContent = describeOutage(); }, 1000);  // counts the downtime down
