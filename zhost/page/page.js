// SPDX-License-Identifier: Apache-2.0
// Asks the host for its report again and again, and has each part of the page show it.

import {makeAttention} from './attention.js';
import {makeBus} from './bus.js';
import {makeCall} from './call.js';
import {confirm, notify, wantToken} from './dialogs.js';
import {byId} from './dom.js';
import {ask, post, reason} from './door.js';
import {makeEvents} from './events.js';
import {makeHeadline} from './headline.js';
import {makeLog} from './log.js';
import {makePlots} from './plots.js';
import {makePlugins} from './plugins.js';
import {makeSchedule} from './schedule.js';
import {makeConfiguration, makeEndpoints, makeServices, makeThreads} from './wiring.js';
import {clock, setHostTime} from './words.js';

const PauseMs = 2000;
const HiddenPauseMs = 20000; // nobody looks

let isWanted = false; // a report, without a pause
let endPause = () => {};

/** Has the page ask at once, to show what has come of something. */
function refresh() {
    isWanted = true;
    endPause();
}

function pause() {
    return new Promise((resolve) => {
        const timer = setTimeout(resolve, isWanted ? 0 : document.hidden ? HiddenPauseMs : PauseMs);
        endPause = () => {
            clearTimeout(timer);
            resolve();
        };
    });
}

const headline = makeHeadline();
const plots = makePlots(byId('plots'));
const plugins = makePlugins(refresh);
const call = makeCall(refresh);
const log = makeLog();
const parts = [
    headline, plugins, makeAttention(plugins.open), makeSchedule(refresh), makeEvents(), makeServices(),
    makeEndpoints(call.fill), makeBus(), makeThreads(), makeConfiguration(),
];

let last = null; // the report that is shown
let lastAt = null;
let isGone = false;

function show(report) {
    setHostTime(report.host.now);
    if (last && (last.host.process !== report.host.process || last.host.since !== report.host.since))
        notify(`The host was started anew at ${clock(report.host.since)}.`);
    if (isGone)
        log.reconnect(); // its connection may be as dead as the host was
    isGone = false;
    last = report;
    if (!report.isOld)
        lastAt = new Date().toISOString();
    document.body.classList.toggle('stale', report.isOld);
    plots.add(report.host);
    for (const part of parts)
        part.show(report);
}

/** A host that cannot tell all can still tell of itself, and why. */
async function askReport() {
    try {
        return {...await ask('/v1/report'), isOld: false};
    } catch (error) {
        if (error.name !== 'TimeoutError' || !last)
            throw error;
        return {...last, host: await ask('/v1/report/host'), isOld: true};
    }
}

async function poll() {
    try {
        show(await askReport());
    } catch (error) {
        isGone = true;
        document.body.classList.add('stale');
        if (error.status === 401) {
            headline.showLocked();
            await wantToken();
        } else {
            plots.add(null);
            headline.showGone(lastAt, reason(error));
        }
    }
}

byId('reload-button').addEventListener('click', ({currentTarget}) => confirm({
    title: 'Reload the configuration?',
    text: 'The host reads its file once more, as upon SIGHUP. The log says what comes of it.',
    yes: 'Reload', opener: currentTarget,
    async act() {
        await post('/v1/reload');
        refresh();
        return 'The host is told to reload; the log says what comes of it.';
    },
}));
document.addEventListener('visibilitychange', refresh);

for (;;) { // one request after the other, however long each takes
    isWanted = false;
    await poll();
    await pause();
}
