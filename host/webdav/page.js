// The actions of the folder page: upload, new folder, rename, delete, sort, filter. They send WebDAV requests to the server, like
// any client, and then load the page again.
'use strict';
const $ = (selector, from = document) => from.querySelector(selector);
const here = location.pathname.endsWith('/') ? location.pathname : location.pathname + '/';
const rows = () => [...document.querySelectorAll('tbody tr')];
const order = { column: 0, down: false };

function say(text, failed = false) {
  $('#state').textContent = text;
  $('#state').classList.toggle('failed', failed);
}

// Questions and uploads come one after the other: a second one must not take the answer of the first.
let asked = Promise.resolve(), uploaded = Promise.resolve();

// Resolves to the typed text, to '' for a yes without a field, or to null for no.
function ask(text, yes, value) {
  return asked = asked.then(() => askNow(text, yes, value));
}

function askNow(text, yes, value) {
  const dialog = $('#ask'), field = $('input', dialog);
  $('p', dialog).textContent = text;
  dialog.setAttribute('aria-label', text);
  $('[value=yes]', dialog).textContent = yes;
  field.hidden = value === undefined;
  field.value = value ?? '';
  dialog.showModal();
  if (value !== undefined) {
    field.focus();
    const dot = value.lastIndexOf('.');
    field.setSelectionRange(0, dot > 0 ? dot : value.length);
  } else $('[value=no]', dialog).focus();
  // Closed here, because the close event may come when the next question is open already.
  return new Promise(done => {
    const end = (event, answer) => {
      event.preventDefault();
      dialog.close();
      done(answer);
    };
    $('form', dialog).onsubmit = event => end(event, event.submitter.value === 'yes' ? field.value : null);
    dialog.oncancel = event => end(event, null);
  });
}

// Throws an Error with the server's reason.
async function request(method, url, headers = {}) {
  const answer = await fetch(url, { method, headers });
  const text = answer.ok && answer.status !== 207 ? '' : await answer.text();
  if (answer.ok && answer.status !== 207) return;
  throw new Error(answer.status === 207 ? 'it was done only in part; somebody may have something open' : reason(answer.status, text));
}

function reason(status, text) {
  const words = { 412: 'this name exists already', 423: 'somebody else has locked it', 507: 'the disk is full', 401: 'a user and a password are needed' };
  return words[status] || (text && !text.startsWith('<') ? text.trim() : 'the server answered ' + status);
}

async function refresh() {
  const answer = await fetch(location.href, { headers: { Accept: 'text/html' } });
  const fresh = new DOMParser().parseFromString(await answer.text(), 'text/html');
  $('main').replaceWith(fresh.querySelector('main'));
  dress();
}

// Calls action, loads the folder again, and shows the result.
async function act(doing, done, action) {
  say(doing);
  const problem = await action().then(() => null, error => error.message);
  const isShown = await refresh().then(() => true, () => false);
  if (problem) say(doing.replace(/…$/, '') + ': ' + problem, true);
  else say(isShown ? done : 'The server no longer answers.', !isShown);
}

const fits = name => name && !/[\\/:*?"<>|]/.test(name) && name !== '.' && name !== '..';

async function newFolder() {
  const name = await ask('Name of the new folder', 'Create', '');
  if (name === null || name === '') return;
  if (!fits(name)) return say('A name cannot contain any of \\ / : * ? " < > |', true);
  await act(`Creating ${name}…`, `${name} is created.`, () => request('MKCOL', here + encodeURIComponent(name) + '/'));
}

async function rename(row) {
  const name = row.dataset.name, to = await ask(`New name of ${name}`, 'Rename', name);
  if (to === null || to === name) return;
  if (!fits(to)) return say('A name cannot contain any of \\ / : * ? " < > |', true);
  const target = new URL(here + encodeURIComponent(to) + (row.dataset.kind === 'folder' ? '/' : ''), location.href).href;
  await act(`Renaming ${name}…`, `${name} is now ${to}.`, () => request('MOVE', $('a', row).href, { Destination: target, Overwrite: 'F' }));
}

async function remove(row) {
  const name = row.dataset.name, isFolder = row.dataset.kind === 'folder';
  if (await ask(`Delete ${name}${isFolder ? ' with everything in it' : ''}? This cannot be undone.`, 'Delete') === null) return;
  await act(`Deleting ${name}…`, `${name} is deleted.`, () => request('DELETE', $('a', row).href));
}

function put(url, file, isNew, progress) {
  return new Promise((done, failed) => {
    const sending = new XMLHttpRequest();
    sending.open('PUT', url);
    if (isNew) sending.setRequestHeader('If-None-Match', '*');
    sending.setRequestHeader('X-OC-Mtime', Math.floor(file.lastModified / 1000));
    sending.upload.onprogress = event => progress(event.loaded);
    sending.onload = () => done(sending);
    sending.onerror = () => failed(new Error('the connection broke off'));
    sending.send(file);
  });
}

// items: { file, path } with path below this folder; folders: paths of those to make, the outer ones first.
function upload(items, folders) {
  return uploaded = uploaded.then(() => uploadNow(items, folders)).catch(error => say(error.message, true));
}

async function uploadNow(items, folders) {
  const total = items.reduce((sum, item) => sum + item.file.size, 0) || 1, bar = $('#progress'), failures = [];
  const address = path => here + path.split('/').map(encodeURIComponent).join('/');
  let before = 0, stored = 0;
  bar.hidden = false;
  for (const folder of folders) await fetch(address(folder) + '/', { method: 'MKCOL' }).catch(() => {});
  for (const { file, path } of items) {
    const progress = loaded => { bar.value = (before + loaded) / total; };
    say(`Uploading ${path} (${stored + failures.length + 1} of ${items.length})…`);
    try {
      let answer = await put(address(path), file, true, progress);
      if (answer.status === 412 && await ask(`${path} exists already. Replace it?`, 'Replace') !== null)
        answer = await put(address(path), file, false, progress);
      if (answer.status >= 300) throw new Error(reason(answer.status, answer.responseText));
      ++stored;
    } catch (error) {
      failures.push(`${path}: ${error.message}`);
    }
    before += file.size;
  }
  bar.hidden = true;
  await refresh().catch(() => {});
  const files = count => count + (count === 1 ? ' file' : ' files');
  say(failures.length ? `${files(stored)} stored, ${failures.length} not: ${failures.join('; ')}` : `${files(stored)} stored.`, failures.length > 0);
}

const foldersOf = paths => [...new Set(paths.flatMap(path => path.split('/').slice(0, -1).map((_, index, parts) => parts.slice(0, index + 1).join('/'))))];

function uploadChosen(input) {
  const items = [...input.files].map(file => ({ file, path: file.webkitRelativePath || file.name }));
  input.value = '';
  if (items.length) upload(items, foldersOf(items.map(item => item.path)));
}

async function entriesBelow(entry, path, items, folders) {
  if (entry.isFile) {
    items.push({ file: await new Promise((done, failed) => entry.file(done, failed)), path: path + entry.name });
    return;
  }
  folders.push(path + entry.name);
  const reader = entry.createReader();
  for (;;) {
    const part = await new Promise((done, failed) => reader.readEntries(done, failed));
    if (!part.length) return;
    for (const child of part) await entriesBelow(child, path + entry.name + '/', items, folders);
  }
}

async function dropped(transfer) {
  const items = [], folders = [], entries = [...transfer.items].map(item => item.webkitGetAsEntry && item.webkitGetAsEntry()).filter(Boolean);
  for (const entry of entries) await entriesBelow(entry, '', items, folders);
  if (!entries.length) for (const file of transfer.files) items.push({ file, path: file.name });
  if (items.length || folders.length) upload(items, folders);
}

function sort(column, down) {
  Object.assign(order, { column, down });
  const key = row => [row.dataset.name, Number(row.dataset.size), row.dataset.time, $('.k', row).textContent][column];
  const compare = (left, right) => column === 1 ? key(left) - key(right) : key(left).localeCompare(key(right), undefined, { numeric: true, sensitivity: 'base' });
  const sorted = rows().sort((left, right) => (right.dataset.kind === 'folder') - (left.dataset.kind === 'folder') || (down ? compare(right, left) : compare(left, right)));
  $('tbody').append(...sorted);
  document.querySelectorAll('th[data-column]').forEach((head, index) => head.setAttribute('aria-sort', index !== column ? 'none' : down ? 'descending' : 'ascending'));
}

function filter() {
  const wanted = $('#filter').value.toLocaleLowerCase();
  for (const row of rows()) row.hidden = !row.dataset.name.toLocaleLowerCase().includes(wanted);
}

function button(text, label, action) {
  const made = document.createElement('button');
  made.type = 'button';
  made.textContent = text;
  made.setAttribute('aria-label', label);
  made.addEventListener('click', action);
  return made;
}

// Adds buttons to the server's page, and shows times in the local time zone.
function dress() {
  for (const time of document.querySelectorAll('time'))
    time.textContent = new Date(time.dateTime).toLocaleString(undefined, { dateStyle: 'medium', timeStyle: 'short' });
  const head = $('thead tr');
  if (!head) return;
  if ($('th.t', head)) $('th.t', head).textContent = 'Changed';
  [...head.children].forEach((cell, column) => {
    const text = cell.textContent;
    cell.dataset.column = column;
    cell.replaceChildren(button(text, 'Sort by ' + text, () => sort(column, order.column === column && !order.down)));
  });
  if (document.body.dataset.root === undefined) {
    const label = Object.assign(document.createElement('span'), { className: 'hide', textContent: 'Actions' });
    head.append(document.createElement('th'));
    head.lastChild.append(label);
    for (const row of rows()) {
      const cell = row.insertCell();
      cell.className = 'a';
      cell.append(button('Rename', 'Rename ' + row.dataset.name, () => rename(row)), ' ', button('Delete', 'Delete ' + row.dataset.name, () => remove(row)));
    }
  }
  sort(order.column, order.down);
  filter();
}

if ($('#tools')) {
  $('#tools').hidden = false;
  $('#filter').addEventListener('input', filter);
  if (document.body.dataset.root === undefined) {
    $('#upload').addEventListener('click', () => $('#files').click());
    $('#uploadFolder').addEventListener('click', () => $('#folder').click());
    $('#files').addEventListener('change', event => uploadChosen(event.target));
    $('#folder').addEventListener('change', event => uploadChosen(event.target));
    $('#newFolder').addEventListener('click', newFolder);
    let depth = 0;
    const over = by => document.body.classList.toggle('over', (depth = Math.max(0, depth + by)) > 0);
    addEventListener('dragenter', event => { event.preventDefault(); over(1); });
    addEventListener('dragleave', () => over(-1));
    addEventListener('dragover', event => event.preventDefault());
    addEventListener('drop', event => { event.preventDefault(); depth = 0; over(0); dropped(event.dataTransfer); });
  } else for (const id of ['upload', 'uploadFolder', 'newFolder']) $('#' + id).hidden = true;
  dress();
}
