// The inspector page in a real browser (Debian's chromium, headless): reports sent by the real
// zelnora-host appear live, an event that looks like HTML shows as text, the filters and the
// download work, and flipping the kill switch in the page disables the next start-up.
//   node live_view.test.mjs SERVICE HOST [SCREENSHOT.png]
import { spawn, spawnSync } from 'node:child_process';
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';
import assert from 'node:assert/strict';

const kSetupHint = 'the inspector\'s browser test needs Debian\'s chromium and scripts/browser-setup';
const { chromium } = await import('playwright-core').catch(() => fail(kSetupHint));
if (!fs.existsSync('/usr/bin/chromium')) fail(kSetupHint);

function fail(message) {
  console.error(`inspector: ${message}`);
  process.exit(1);
}

const [servicePath, hostPath, screenshotPath] = process.argv.slice(2);
const kHostileEvent = '<img src=x onerror=alert(1)>';
const scratch = fs.mkdtempSync(path.join(os.tmpdir(), 'zelnora-inspector-'));
const folder = (name) => fs.mkdirSync(path.join(scratch, name), { recursive: true }) ?? path.join(scratch, name);
// Chromium too keeps its settings and caches (~/.config, ~/.cache, ~/.pki) under this HOME.
const privateEnvironment = { ...process.env, HOME: folder('home'), XDG_DATA_HOME: folder('data'),
  XDG_CONFIG_HOME: folder('config'), XDG_CACHE_HOME: folder('cache') };
for (const name of ['ZELNORA_SIM_ADVERTISING_ID', 'ZELNORA_SIM_CARRIER', 'ZELNORA_SIM_LOCATION']) {
  delete privateEnvironment[name];
}

function startService() {
  const service = spawn(servicePath, ['--port', '0', '--quiet'], { env: privateEnvironment });
  const listening = new Promise((resolve, reject) => {
    let output = '';
    service.stdout.on('data', (chunk) => {
      output += chunk;
      const port = /listening on 127\.0\.0\.1:(\d+)/.exec(output);
      if (port) resolve(Number(port[1]));
    });
    service.on('exit', (code) => reject(new Error(`zelnora-service exited with ${code}: ${output}`)));
  });
  return { service, listening };
}

async function stopService(service) {
  if (service.exitCode !== null) return;
  const exited = new Promise((resolve) => service.on('exit', resolve));
  service.kill('SIGTERM');
  assert.equal(await exited, 0, 'zelnora-service stops cleanly on SIGTERM with pages open');
}

function writeBundle(baseUrl) {
  const entry = (key) => `<key>${key}</key><string>${key === 'INIT_CONFIG' ? baseUrl + '/config/{key}' : baseUrl}</string>`;
  const plist = `<?xml version="1.0" encoding="UTF-8"?>\n<plist version="1.0"><dict>${
    ['INIT_CONFIG', 'API_BASE_URL', 'VQX_BASE_URL'].map(entry).join('')}</dict></plist>\n`;
  fs.writeFileSync(path.join(folder('bundle'), 'ZelnoraAdsConfig.plist'), plist);
}

// One launch of the host app; its output. Asynchronous, so that the page keeps receiving meanwhile.
function host(...commands) {
  return new Promise((resolve, reject) => {
    const child = spawn(hostPath, ['--bundle', path.join(scratch, 'bundle'), ...commands], { env: privateEnvironment });
    let output = '';
    child.stdout.on('data', (chunk) => { output += chunk; });
    child.stderr.on('data', (chunk) => { output += chunk; });
    child.on('exit', (code) => (code === 0 ? resolve(output) : reject(new Error(`zelnora-host: ${code}\n${output}`))));
  });
}

// A report the kit would not send: its vendor identifier in lower case.
const kOddReport = { events: [{ brand: 'Apple', hardware: 'A17 Pro', manufacturer: 'Apple', model: 'iPhone 15 Pro',
  eventDate: '1700000000123', deviceId: 'f018145f-6eb4-4fd8-8bfc-517f4dca0c49', event: 'hand_made' }] };

async function checkReportsAppear(page, baseUrl) {
  await host('initialize demo-key', 'wait', 'send-report event=app_open', `send-report "event=${kHostileEvent}"`, 'wait');
  const hostile = page.locator('.request', { has: page.locator('td', { hasText: kHostileEvent }) });
  await hostile.waitFor({ timeout: 10_000 });
  assert.equal(await page.locator('#requests img').count(), 0, 'the event is not turned into an element');
  const appOpen = page.locator('.request', { has: page.locator('td', { hasText: /^app_open$/ }) });
  assert.equal(await appOpen.locator('.fine').textContent(), 'Report as expected.', 'the kit\'s report passes the check');
  assert.deepEqual(await page.locator('.request .path').allTextContents(),
    ['/tracker/app', '/tracker/app', '/config/demo-key'], 'newest first');
  await fetch(baseUrl + '/tracker/app', { method: 'POST', body: JSON.stringify(kOddReport) });
  const flagged = page.locator('.request.flagged .problems li');
  await flagged.waitFor({ timeout: 5_000 });
  assert.deepEqual(await flagged.allTextContents(), ['event 1: "deviceId" is not an upper-case UUID']);
}

async function checkFiltersAndDownload(page) {
  await page.selectOption('#endpoint', '/tracker/app');
  await page.fill('#event-name', 'app_');
  assert.equal(await page.locator('.request:visible').count(), 1);
  assert.equal(await page.textContent('#count'), '1 of 4 requests');
  await page.fill('#event-name', '');
  await page.selectOption('#endpoint', '');
  const [download] = await Promise.all([page.waitForEvent('download'), page.click('#download')]);
  const lines = fs.readFileSync(await download.path(), 'utf8').trimEnd().split('\n').map((line) => JSON.parse(line));
  assert.deepEqual(lines.map((line) => line.path), ['/config/demo-key', '/tracker/app', '/tracker/app', '/tracker/app']);
  // The host's two reports travel at once, so either may arrive first.
  const events = lines.slice(1, 3).map((line) => JSON.parse(line.body).events[0].event).sort();
  assert.deepEqual(events, ['app_open', kHostileEvent].sort(), 'the download keeps each event as received');
}

async function checkKillSwitch(page) {
  const row = page.locator('#keys tr[data-key="demo-key"]');
  await row.locator('button.kill-switch').click();
  await row.locator('td.answer', { hasText: '"k":true' }).waitFor({ timeout: 5_000 });
  await host('initialize demo-key', 'wait');  // fetches and stores the switched-off configuration
  const second = await host('initialize demo-key', 'wait');
  assert.match(second, /^Zelnora Ads sdk disabled$/m);
}

// The POST's own answer is held back until the event stream has shown the outage used up, as a
// loaded machine may deliver them: the older state in that answer must not be shown over it.
async function checkOutage(page, baseUrl) {
  let release;
  const released = new Promise((resolve) => { release = resolve; });
  await page.route('**/inspector/outage', async (route) => {
    const answer = await route.fetch();
    await released;
    await route.fulfill({ response: answer });
  });
  await page.fill('#outage [name=failNext]', '1');
  await page.fill('#outage [name=failStatus]', '429');
  await page.click('#outage button');
  await page.locator('#outage-now', { hasText: 'failing the next 1 tracking requests, answering 429.' }).waitFor();
  assert.equal((await fetch(baseUrl + '/tracker/app', { method: 'POST', body: '{}' })).status, 429);
  await page.locator('#outage-now', { hasText: 'No outage.' }).waitFor({ timeout: 5_000 });
  release();
  await page.locator('#message', { hasText: 'Saved.' }).waitFor({ timeout: 5_000 });
  assert.equal(await page.locator('#outage-now').textContent(), 'No outage.');
}

const { service, listening } = startService();
let browser;
try {
  const baseUrl = `http://127.0.0.1:${await listening}`;
  writeBundle(baseUrl);
  browser = await chromium.launchPersistentContext(folder('profile'), {
    executablePath: '/usr/bin/chromium', headless: true, env: privateEnvironment, acceptDownloads: true, viewport: { width: 1000, height: 700 },
    args: ['--no-sandbox', '--disable-gpu', '--disable-background-networking', '--disable-component-update',
      '--no-first-run', '--disable-sync'],
  });
  const page = browser.pages()[0] ?? await browser.newPage();
  const dialogs = [];
  page.on('dialog', (dialog) => { dialogs.push(dialog.message()); dialog.dismiss(); });
  await page.goto(baseUrl + '/');
  await page.locator('#connection', { hasText: 'live' }).waitFor({ timeout: 5_000 });
  await checkReportsAppear(page, baseUrl);
  await checkFiltersAndDownload(page);
  if (screenshotPath) await page.evaluate(() => window.scrollTo(0, 0));
  if (screenshotPath) await page.screenshot({ path: screenshotPath });
  await checkKillSwitch(page);
  await checkOutage(page, baseUrl);
  assert.deepEqual(dialogs, [], 'no script ran from a report');
  console.log('inspector: all checks passed');
} finally {
  await stopService(service);  // pages still open: a stop must end their event streams
  await browser?.close();
  fs.rmSync(scratch, { recursive: true, force: true });
}
