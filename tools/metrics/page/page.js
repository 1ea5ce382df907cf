// Shows what state.json tells, and asks for it again and again.
//
// Whatever is shown is put in as text, never as HTML: names and descriptions are what somebody
// wrote. The policy that the server sends along would not let a script in a text run, either.
'use strict';

const SVG = 'http://www.w3.org/2000/svg';

// An element with attributes and children, which are elements or texts; null is left out.
function make(document, name, attributes, ...children) {
  const node = name.startsWith('svg:') ? document.createElementNS(SVG, name.slice(4))
                                       : document.createElement(name);
  for (const [key, value] of Object.entries(attributes || {})) {
    if (value !== null && value !== undefined) node.setAttribute(key, value);
  }
  node.append(...children.flat().filter((child) => child !== null && child !== undefined));
  return node;
}
const h = (name, attributes, ...children) => make(document, name, attributes, ...children);
const byId = (id) => document.getElementById(id);

const whole = new Intl.NumberFormat('en-US');
const number = (value) => whole.format(value);
const counted = (count, one, more) => `${number(count)} ${count === 1 ? one : more}`;
const entries = (count) => counted(count, 'entry', 'entries');

function scaled(value, units, step) {
  let unit = 0;
  while (value >= step && unit + 1 < units.length) {
    value /= step;
    unit += 1;
  }
  const digits = value > 0 && value < 10 ? 1 : 0;
  return `${value.toFixed(digits)}${units[unit]}`;
}
const rate = (value) => scaled(value, ['', ' k', ' M', ' G'], 1000);
const total = (value) => value < 1000 ? number(value) : rate(value);
const bytes = (value) => scaled(value, [' B', ' kB', ' MB', ' GB', ' TB'], 1000);

function duration(seconds) {
  const s = Math.round(seconds);
  if (s < 120) return `${s} s`;
  if (s < 7200) return `${Math.round(s / 60)} min`;
  if (s < 172800) return `${Math.round(s / 3600)} h`;
  return `${Math.round(s / 86400)} d`;
}
const milliseconds = (us) => `${(us / 1000).toFixed(us < 10000 ? 1 : 0)} ms`;
const percentOf = (part, all) => {
  const percent = all ? 100 * part / all : 0;
  if (percent === 0) return '0 %';
  return percent < 0.1 ? 'less than 0.1 %' : `${percent.toFixed(percent < 10 ? 1 : 0)} %`;
};
const time = (text) => text.slice(0, 19).replace('T', ' ');
const upper = (text) => text.toUpperCase();

const KINDS = {ok: 'ok', warning: 'warning', error: 'bad'};
const RESULTS = {applied: 'ok', pending: 'warning', failed: 'bad', superseded: ''};
const FILTERS = {'in-force': ['ok', 'in force'], waiting: ['warning', 'waiting for it'],
                 failed: ['bad', 'failed'], 'not-enforced': ['warning', 'not enforced']};
const LINKS = {up: 'up', down: 'down', absent: 'absent'};

const tag = (group) => h('span', {class: `tag ${group}`}, upper(group));
const state = (kind, text) => h('span', {class: `state ${kind}`}, text);
const empty = (text) => h('p', {class: 'quiet'}, text);

function groupBar(group) {
  const share = (entries) => group.capacity ? Math.min(100, 100 * entries / group.capacity) : 0;
  const used = share(group.entries);
  const width = group.entries > 0 ? Math.max(used, 0.4) : 0;  // little is more than nothing
  const waits = group.waiting === undefined ? 0 : share(group.waiting);
  const mark = (percent) => h('svg:rect', {class: 'mark', x: percent - 0.15, width: 0.3, height: 10});
  return h('svg:svg', {class: 'bar', viewBox: '0 0 100 10', preserveAspectRatio: 'none', role: 'img',
                       'aria-label': `${upper(group.type)}: ${used.toFixed(1)} percent used, ` +
                                     `thresholds at ${group.low} and ${group.high} percent`},
           h('svg:rect', {class: 'track', width: 100, height: 10}),
           waits > used ? h('svg:rect', {class: 'waits', width: waits, height: 10}) : null,
           h('svg:rect', {class: group.nearlyFull ? 'full' : group.type, width, height: 10}),
           mark(group.low), mark(group.high));
}

const costOf = (search) => (search.tables === undefined ? '' : `${counted(search.tables, 'table', 'tables')}, `) +
  `${entries(search.entries)} on ${search.interface}`;

function showGroups(page) {
  const fact = (name, value) => h('div', {}, h('dt', {}, name), h('dd', {}, value));
  return page.groups.map((group) => {
    return h('div', {class: 'group', 'data-group': group.type},
             h('div', {class: 'group-head'}, h('h3', {}, tag(group.type)),
               h('span', {class: 'used'}, number(group.entries)),
               h('span', {class: 'quiet'}, `of ${entries(group.capacity)}, ` +
                                           percentOf(group.entries, group.capacity)),
               group.nearlyFull ? state('bad', 'nearly full') : null),
             groupBar(group),
             h('dl', {class: 'facts quiet small'},
               fact('free', number(Math.max(0, group.capacity - group.entries))),
               group.waiting === undefined ? null : fact('waiting', entries(group.waiting)),
               fact('nearly full', `from ${group.high} %, until ${group.low} %`),
               group.search === undefined ? null : fact('costliest search', costOf(group.search))));
  });
}

function showParts(page) {
  return h('ul', {class: 'rows'}, page.parts.map((part) =>
    h('li', {class: 'part'}, h('span', {class: 'name'}, part.name),
      state(KINDS[part.state] || '', part.state),
      h('span', {class: 'clamped quiet small', title: part.text}, part.text))));
}

function curveOf(entry, window) {
  const peak = Math.max(...entry.curve.map((point) => point[1]), 1e-9);
  const x = (ago) => (100 * (1 - ago / window)).toFixed(2);
  const y = (value) => (29 - 27 * value / peak).toFixed(2);
  const [oldest, oldestValue] = entry.curve[0];
  const points = [[oldest + 2, oldestValue], ...entry.curve];  // so that one alone is seen as well
  const line = points.map(([ago, value]) => `${x(ago)},${y(value)}`);
  const first = x(points[0][0]);
  const last = x(points[points.length - 1][0]);
  return h('svg:svg', {class: 'curve', viewBox: '0 0 100 30', preserveAspectRatio: 'none', role: 'img',
                       'aria-label': `packets a second over the last ${duration(window)}, ` +
                                     `at most ${rate(peak)}`},
           h('svg:line', {class: 'ground', x1: 0, y1: 29.5, x2: 100, y2: 29.5}),
           h('svg:polygon', {class: 'area', points: `${first},29 ${line.join(' ')} ${last},29`}),
           h('svg:polyline', {class: 'line', points: line.join(' ')}));
}

function showBusy(page) {
  if (!page.hitsCounted) return empty('The back end "memory" enforces nothing, and counts no hits.');
  if (page.busy.length === 0) {
    return empty(`No entry has decided a frame in the last ${duration(page.window)}.`);
  }
  const rows = page.busy.map((entry) =>
    h('li', {class: 'entry'},
      h('div', {},
        h('div', {}, tag(entry.group), ' ',
          h('span', {class: 'name'}, `${entry.profile} ${entry.acePriority}`), ' ',
          h('span', {class: 'quiet'}, `on ${entry.interface}`)),
        h('div', {class: 'match'}, entry.match === '' ? '' : `${entry.match} → ${entry.action}`),
        entry.description === '' ? null : h('div', {class: 'quiet small'}, entry.description)),
      h('div', {class: 'numbers number'}, h('div', {class: 'rate'}, `${rate(entry.rate)}/s`),
        h('div', {class: 'quiet small'}, `${bytes(entry.byteRate)}/s`),
        h('div', {class: 'quiet small', title: `${number(entry.packets)} frames, ${number(entry.bytes)} bytes`},
          `${total(entry.packets)} in all`)),
      curveOf(entry, page.window)));
  return [h('ul', {class: 'rows'}, rows),
          h('p', {class: 'note quiet small'},
            `Frames a second that an entry decided, over the last ${duration(page.window)}; each curve up to its own highest.`)];
}

// The first rows of a list, the others folded away; `all` is how many there would be in all.
function folded(kind, rows, most, all) {
  const rest = rows.slice(most);
  const beyond = all > rows.length ? empty(`and ${number(all - rows.length)} more, which are not shown here`) : null;
  return [h('ul', {class: kind}, rows.slice(0, most)),
          rest.length === 0 ? beyond
              : h('details', {}, h('summary', {}, `${number(rest.length)} more`),
                  h('ul', {class: kind}, rest), beyond)];
}

function showInterfaces(page) {
  if (page.interfaces.length === 0) return empty('No profile with entries is bound to an interface.');
  const urgent = ['failed', 'waiting'];  // first
  const place = (one) => (urgent.indexOf(one.filters) + 1) || urgent.length + 1;
  const rows = [...page.interfaces].sort((a, b) => place(a) - place(b)).map((one) => {
    const [kind, text] = FILTERS[one.filters] || ['', one.filters];
    return h('li', {class: 'part'},
             h('span', {}, h('span', {class: 'name'}, one.name), ' ',
               h('span', {class: 'quiet'}, LINKS[one.link] || one.link)),
             state(kind, text),
             h('div', {class: 'bound small'}, one.uses.map((use) =>
               h('span', {}, tag(use.group), ' ', use.profile, ' ',
                 h('span', {class: 'quiet'}, number(use.entries))))));
  });
  return folded('rows tiles', rows, 24, page.interfaceCount);
}

function showProfiles(page) {
  if (page.profiles.length === 0) return empty('No profile is configured.');
  const rows = page.profiles.map((one) =>
    h('li', {class: 'part'},
      h('span', {}, tag(one.group), ' ', h('span', {class: 'name'}, one.name), ' ',
        h('span', {class: 'quiet'}, `priority ${one.priority}`)),
      h('span', {class: 'quiet'},
        one.entries === 0 ? 'not in use' : entries(one.entries)),
      one.description === '' ? null : h('span', {class: 'quiet small'}, one.description)));
  return folded('rows', rows, 8, page.profileCount);
}

function showCommits(page) {
  const cell = (label, content, kind) => h('td', {'data-label': label, class: kind, role: 'cell'}, content);
  const rows = page.commits.map((commit) => {
    const comment = [commit.atStart ? 'loaded at the start' : '', commit.comment].filter(Boolean).join(': ');
    return h('tr', {role: 'row'}, cell('Commit', commit.id), cell('Time (UTC)', time(commit.time)),
             cell('User', commit.user || []),
             cell('Result', state(RESULTS[commit.result] || '', commit.result)),
             cell('Took', milliseconds(commit.durationUs), 'number'),
             cell('What', [comment, commit.reason ? h('div', {class: 'small'}, commit.reason) : null]
                            .filter(Boolean)));
  });
  const heads = [['Commit'], ['Time (UTC)'], ['User'], ['Result'], ['Took', 'number'], ['What']];
  const waits = page.confirmed;
  return [
    waits === undefined ? null
        : h('p', {class: 'alert warning'}, `Commit ${waits.commit} by ${waits.user} is taken back to ` +
            `commit ${waits.base} in ${duration(waits.remaining)}, unless it is confirmed.`),
    rows.length === 0 ? empty('The configuration is being loaded.')
        : h('table', {role: 'table', 'aria-labelledby': 'commits-title'},
            h('thead', {role: 'rowgroup'}, h('tr', {role: 'row'}, heads.map(([text, kind]) =>
              h('th', {scope: 'col', role: 'columnheader', class: kind}, text)))),
            h('tbody', {role: 'rowgroup'}, rows))];
}

function showFindings(page) {
  const found = page.findings;
  if (found.commit === '') return empty('They are being looked for.');
  const old = found.commit === page.running ? null
      : empty(`These are of commit ${found.commit}; those of commit ${page.running} are being looked for.`);
  const part = found.incomplete ? empty('Not all entries could be looked at: it would take too long.') : null;
  if (found.total === 0) return [old, empty('Nothing was found: every entry does what it seems to.'), part];
  const rows = found.list.map((one) => h('li', {}, h('span', {class: 'name'}, one.where), ' ', one.text));
  return [old, folded('rows', rows, 8, found.total), part].flat();
}

const SECTIONS = {groups: showGroups, parts: showParts, busy: showBusy, interfaces: showInterfaces,
                  profiles: showProfiles, commits: showCommits, findings: showFindings};
const shown = {};  // what each section shows, so that nothing is touched that stays the same

function showSections(page) {
  for (const [id, show] of Object.entries(SECTIONS)) {
    const content = h('div', {}, [show(page)].flat());
    const text = content.outerHTML;
    if (shown[id] === text) continue;
    shown[id] = text;
    const opened = byId(id).querySelector('details')?.open;
    byId(id).replaceChildren(...content.childNodes);
    if (opened) byId(id).querySelector('details')?.setAttribute('open', '');
  }
}

function setAlert(title, text) {
  const wanted = title === null ? '' : `${title} ${text}`;
  if (byId('alert').textContent === wanted) return;
  byId('alert').replaceChildren();
  if (title === null) return;
  byId('alert').append(h('p', {class: 'alert bad'}, h('strong', {}, title), ' ', text));
}

function setVerdict(kind, text) {
  byId('verdict').className = `badge ${kind}`;
  if (byId('verdict').textContent !== text) byId('verdict').textContent = text;
  document.title = `${text} · acl-app`;
}

let last = null;  // the state that is shown
let interval = 5;

// Says who is away, in words that stay the same as long as that is so: they are read out.
function away(title, why) {
  const seen = last !== null && last.readAt !== undefined;
  const since = seen ? `What follows is as it was at ${time(new Date(1000 * last.readAt).toISOString())} UTC.`
                     : 'It has not been seen yet.';
  setVerdict('bad', 'away');
  setAlert(title, `${since} The reason: ${why}`);
  byId('main').classList.add('stale');
  byId('main').hidden = !seen;
}

function showState(page) {
  last = page;
  interval = page.interval;
  if (page.readAt !== undefined) showSections(page);
  byId('about').textContent = page.version === undefined ? location.host
      : `acl-app ${page.version} on ${location.hostname}, filters by ${page.backend}, ` +
        `${counted(page.sessions, 'session', 'sessions')}`;
  byId('renewed').textContent = `It is renewed every ${duration(interval)}.`;
  if (!page.up) return away('The daemon is away.', page.trouble);
  setAlert(null);
  byId('main').classList.remove('stale');
  byId('main').hidden = false;
  const states = page.parts.map((part) => part.state);
  if (states.includes('error')) return setVerdict('bad', 'something is wrong');
  if (states.includes('warning')) return setVerdict('warning', 'worth a look');
  return setVerdict('ok', 'all is well');
}

async function refresh() {
  try {
    const answer = await fetch('state.json', {signal: AbortSignal.timeout(8000), cache: 'no-store'});
    if (!answer.ok) throw new Error(`it answered ${answer.status}`);
    showState(await answer.json());
  } catch (error) {
    away('acl-app-metrics does not answer.', String(error.message));
  }
}

let timer = 0;
async function run() {
  clearTimeout(timer);
  await refresh();
  clearTimeout(timer);
  if (!document.hidden) timer = setTimeout(run, 1000 * interval);
}
document.addEventListener('visibilitychange', () => {
  if (!document.hidden) run();
});
run();
