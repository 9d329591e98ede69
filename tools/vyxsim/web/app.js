// The simulated device, drawn from what vyxsim streams: a "state" event whenever the device
// changed, a "reply" event for each answer of the daemon to a control here.
'use strict';

const $ = (id) => document.getElementById(id);
const INSTALL_SERVICE = 'com.velto.appInstallService';
// Failures are alerts: they stay in front, over a demonstration started after them, until the
// person taps OK or the next pop-up comes.
const ALERTS = ['failConnect', 'disableVYX', 'noProfile'];
let current = null;
let dismissed = 0;

// What the core application shows for each message, in words a shop assistant understands.
const POPUPS = {
  check: ['Getting the demo ready', 'Checking what the demonstration needs…'],
  waitConnect: ['Waiting for a connection', 'The demo needs the internet. Connect to Wi-Fi or a mobile network.'],
  startInstall: ['Installing the demo', 'Downloading the demonstration…'],
  continueInstall: ['Installing the demo', 'Downloading and installing the demonstration.'],
  endInstall: ['Almost there', 'Everything the demo needs is installed.'],
  startVYX: ['The demo is ready', 'Starting the demonstration…'],
  failConnect: ["Couldn't set up the demo", 'The store could not be reached or an install failed. Check the connection and try again.'],
  disableVYX: ["The demo can't run", 'The demonstration is not available on this device.'],
  noProfile: ['Sign-in needed', 'Sign in with an account to run the demonstration.'],
};

function el(tag, className, text) {
  const node = document.createElement(tag);
  if (className) node.className = className;
  if (text !== undefined) node.textContent = text;
  return node;
}

function fill(list, items, make, empty) {
  list.replaceChildren(...(items.length ? items.map(make) : [el('li', 'empty', empty)]));
}

function toast(text, kind) {
  const node = el('div', 'toast ' + (kind || ''), text);
  $('toasts').append(node);
  setTimeout(() => node.remove(), 4500);
}

async function post(path, body) {
  try {
    const res = await fetch(path, {
      method: 'POST',
      headers: { 'Content-Type': 'application/json' },
      body: JSON.stringify(body),
    });
    const answer = await res.json();
    if (!answer.ok) toast(answer.error || res.statusText, 'bad');
  } catch (err) {
    toast('vyxsim did not answer: ' + err.message, 'bad');
  }
}

function network(c) {
  if (c.isInternetConnectionAvailable === false) return 'none';
  if (c.wifi && c.wifi.state === 'connected') return 'wifi';
  if (c.wan && c.wan.state === 'connected') return 'cellular';
  return 'none';
}

function hue(text) {
  let h = 0;
  for (const ch of text) h = (h * 31 + ch.charCodeAt(0)) % 360;
  return h;
}

function renderPhone(s) {
  const phone = $('phone');
  const display = s.display.state || 'on';
  const docked = s.display.dockMode === true || s.display.dockMode === 'true';
  const net = network(s.connectivity);
  phone.dataset.display = display;
  phone.dataset.dock = String(docked);
  phone.dataset.foreground = s.foreground;
  phone.dataset.network = net;
  $('dock-base').classList.toggle('on', docked);

  const ssid = s.connectivity.wifi && s.connectivity.wifi.ssid;
  const netWords = { wifi: 'Wi-Fi' + (ssid ? ' “' + ssid + '”' : ''), cellular: 'Cellular', none: 'No network' };
  $('net-icon').textContent = { wifi: '', cellular: 'LTE', none: 'No service' }[net];
  $('caption').textContent = ['Display ' + display, netWords[net], docked ? 'docked' : 'not docked'].join(' · ');

  // Only applications get an icon; data packages (the demonstration's videos, say) do not.
  fill($('apps'), s.packages.filter((p) => p.id.includes('.app.')), (p) => {
    const app = el('li', 'app');
    const icon = el('span', 'icon', (p.title || p.id).replace(/^Vyx /, '').slice(0, 1));
    icon.style.setProperty('--h', hue(p.id));
    app.append(icon, el('span', 'name', p.title || p.id));
    return app;
  }, '');

  const popup = s.popup;
  const alert = popup && ALERTS.includes(popup.message) && popup.seq > dismissed;
  const showPopup = popup && (alert || s.foreground === 'popup');
  $('popup').hidden = !showPopup;
  $('popup').classList.toggle('alert', Boolean(alert));
  $('popup-ok').hidden = !alert;
  if (showPopup) {
    const words = POPUPS[popup.message] || [popup.message, ''];
    const percent = Math.max(0, Math.min(100, parseInt(popup.percent, 10) || 0));
    const bar = popup.message === 'continueInstall';
    $('popup').dataset.message = popup.message;
    $('popup').dataset.percent = bar ? String(percent) : '';
    $('popup-title').textContent = words[0];
    $('popup-text').textContent = popup.message === 'waitConnect' && popup.percent
      ? words[1] + ' (' + popup.percent + '% of the wait)' : words[1];
    $('popup-progress').hidden = !bar;
    $('popup-bar').style.width = percent + '%';
    $('popup-percent').textContent = bar ? percent + '%' : '';
  }
  const demo = s.foreground === 'demo' && s.demo.running;
  $('demo-app').hidden = !demo;
  $('video').hidden = !(demo && s.demo.video);
  $('home').hidden = demo;
}

function renderSide(s) {
  $('scenario').textContent = s.scenario ? '· ' + s.scenario : '';
  const daemon = $('daemon');
  daemon.textContent = s.daemon.onBus ? 'on the bus' : 'not on the bus';
  daemon.className = s.daemon.onBus ? 'good' : 'bad';
  $('demo-state').textContent = s.daemon.onBus ? s.daemon.demoState : '—';
  const pref = s.preferences.vyxStageRunning;
  $('pref').textContent = pref === undefined ? 'not set' : pref ? 'on' : 'off';

  const display = s.display.state || 'on';
  const docked = String(s.display.dockMode === true || s.display.dockMode === 'true');
  for (const b of $('display-seg').children) b.classList.toggle('active', b.dataset.display === display);
  for (const b of $('dock-seg').children) b.classList.toggle('active', b.dataset.dock === docked);
  const net = network(s.connectivity);
  for (const b of $('network-seg').children) b.classList.toggle('active', b.dataset.network === net);
  $('store-fault').value = s.faults.store;
  $('install-outcome').value = s.installOutcome;
  $('install-service').value = s.faults.notRunning.includes(INSTALL_SERVICE) ? 'down'
    : s.faults.statusSilent ? 'hung' : 'running';

  fill($('installs'), s.installs.slice().reverse(), (i) => {
    const row = el('li', 'install ' + (i.finished ? (/fail|cancel/.test(i.state) ? 'bad' : 'done') : 'busy'));
    row.append(el('span', 'id', i.id), el('span', 'state', i.removal && !i.finished ? 'removing' : i.state));
    const bar = el('span', 'mini');
    const fillBar = el('i');
    fillBar.style.width = (i.state === 'installed' || i.state === 'removed' ? 100 : i.progress) + '%';
    bar.append(fillBar);
    row.append(bar);
    return row;
  }, 'nothing queued');

  fill($('packages'), s.packages, (p) => {
    const row = el('li');
    row.append(el('span', 'id', p.id), el('span', 'chip', p.version));
    return row;
  }, 'none');

  const storeState = $('store-state');
  storeState.textContent = s.faults.store === 'none' ? 'answering' : s.faults.store;
  storeState.className = s.faults.store === 'none' ? 'chip' : 'chip bad';
  const offered = Object.fromEntries(s.catalogue.map((c) => [c.id, c.version]));
  fill($('store'), s.store.slice().reverse(), (r) => {
    const row = el('li');
    const what = r.method === 'appDetail_ext2' ? r.package : 'user profile';
    let answerText = 'HTTP ' + r.status;
    if (r.fault !== 'none') answerText += ', ' + r.fault;
    else if (r.method === 'appDetail_ext2') answerText += offered[r.package] ? ', ' + offered[r.package] : ', not offered';
    row.append(el('span', 'id', what), el('span', r.status === 200 && r.fault === 'none' ? 'chip' : 'chip bad', answerText));
    return row;
  }, s.faults.store === 'down' ? 'the store is down: nothing gets through' : 'no requests yet');

  fill($('calls'), s.calls.slice().reverse(), (c) => {
    const row = el('li');
    const service = c.service === 'store' ? 'store' : c.service.replace(/^com\.velto\./, '');
    row.append(el('span', 'time', c.time.toFixed(1) + 's'), el('span', 'what', service + '/' + c.method),
      el('span', 'payload', c.payload));
    return row;
  }, 'none yet');
}

// The daemon's own record of its run, where it keeps one.
function renderRun(run) {
  $('run-card').hidden = !run;
  if (!run) return;
  const r = run.record;
  const state = run.running ? 'running' : r.outcome || 'ended';
  $('run-state').textContent = state;
  $('run-state').className = 'chip' + (/fail/.test(state) ? ' bad' : '');
  $('run-text').textContent = run.running ? r.activity || r.phase : r.reason || '';
  const started = new Date(r.started * 1000).toLocaleTimeString();
  const took = r.ended ? ', ' + (r.ended - r.started) + ' s' : '';
  $('run-meta').textContent = 'started ' + started + ' by ' + r.trigger + took +
    ' · installed ' + r.installed + ' of ' + r.toInstall;
}

function render(s) {
  current = s;
  renderPhone(s);
  renderSide(s);
  renderRun(s.run);
}

function connect() {
  const events = new EventSource('/events');
  events.addEventListener('state', (e) => render(JSON.parse(e.data)));
  events.addEventListener('reply', (e) => {
    const r = JSON.parse(e.data);
    let reply = {};
    try { reply = JSON.parse(r.reply); } catch (err) { /* shown as it came */ }
    const failed = reply.returnValue === false || reply.returnValue === 'false';
    toast(r.method + ': ' + (failed ? reply.errorText || r.reply : 'done'), failed ? 'bad' : 'good');
  });
  events.onopen = () => { $('link').textContent = 'live'; $('link').className = 'pill good'; };
  events.onerror = () => { $('link').textContent = 'vyxsim is gone'; $('link').className = 'pill bad'; };
}

function wire() {
  $('demo-on').onclick = () => post('/api/demo', { state: true });
  $('demo-off').onclick = () => post('/api/demo', { state: false });
  $('verify').onclick = () => post('/api/verify', {});
  $('popup-ok').onclick = () => { dismissed = current.popup.seq; render(current); };
  for (const b of $('display-seg').children) b.onclick = () => post('/api/display', { state: b.dataset.display });
  for (const b of $('dock-seg').children) b.onclick = () => post('/api/display', { dock: b.dataset.dock === 'true' });
  for (const b of $('network-seg').children) b.onclick = () => post('/api/network', { network: b.dataset.network });
  $('store-fault').onchange = (e) => post('/api/fault', { store: e.target.value });
  $('install-outcome').onchange = (e) => post('/api/install', { outcome: e.target.value });
  $('install-service').onchange = (e) => {
    const v = e.target.value;
    post('/api/fault', {
      [v === 'down' ? 'notRunning' : 'running']: [INSTALL_SERVICE],
      statusSilent: v === 'hung',
    });
  };
  const tick = () => {
    const now = new Date();
    $('clock').textContent = now.getHours() + ':' + String(now.getMinutes()).padStart(2, '0');
  };
  tick();
  setInterval(tick, 10000);
}

wire();
connect();
