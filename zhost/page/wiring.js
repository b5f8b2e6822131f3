// SPDX-License-Identifier: Apache-2.0
// Services, endpoints, threads and the configuration: what is there, as tables.

import {badgeCell, byId, keyedList, keyedTable, make, makeButton, setAttribute, setText, setTextOrHide,
        twoLines} from './dom.js';
import {ago, classOf, fileName, number, span} from './words.js';

const MostBefore = 3;

function beforeWords(before) {
    const texts = before.slice(0, MostBefore).map((one) =>
        `${classOf(one.class, one.file)}${one.held ? ' (still held)' : ''}`);
    if (before.length > MostBefore)
        texts.push(`and ${before.length - MostBefore} more`);
    return texts.join(', ');
}

export function makeServices() {
    const update = keyedTable(byId('services-table'), [
        {title: 'Interface', kind: 'file', make: twoLines((service) => service.interface)},
        {title: 'Served by', kind: 'who', make: whoCell},
        {title: 'Since', make: twoLines(({since}) => ago(since))},
        {title: 'Exchanged', make: twoLines(({exchanges}) => number(exchanges, 'time'))},
        {title: 'Before', kind: 'before', make: twoLines(({before}) => beforeWords(before) || '–')},
    ], {keyOf: (service) => service.interface, more: byId('services-more')});

    return {
        show({services}) {
            const missing = services.filter(({served}) => !served).length;
            setText(byId('services-count'), `${services.length}${missing ? `, ${missing} not served` : ''}`);
            update(services);
        },
    };
}

/** Who serves it, or a word that nobody does. */
function whoCell() {
    const who = twoLines((service) => (service.served ? service.class : ''),
                         ({served, file}) => (served ? fileName(file) || 'the host’s own' : ''))();
    const nobody = badgeCell(({served}) => (served ? '' : 'nobody'), () => 'warning')();
    return {
        nodes: [...who.nodes, ...nobody.nodes],
        update(service) {
            who.update(service);
            nobody.update(service);
        },
    };
}

const whoseWords = ({file, since}) => `${fileName(file) || 'the host’s own'}, bound ${ago(since)}`;

/** `call` fills in the form for a call. */
export function makeEndpoints(call) {
    const update = keyedTable(byId('endpoints-table'), [
        {title: 'Address, and whose it is', kind: 'file', make: twoLines(({url}) => url, whoseWords)},
        {title: 'State', kind: 'state', make: badgeCell(({alive}) => (alive ? 'alive' : 'gone'),
                                         ({alive}) => (alive ? 'plain' : 'warning'))},
        {title: 'Actions', kind: 'actions', make: callCell},
    ], {keyOf: ({url}) => url, more: byId('endpoints-more')});
    const addresses = keyedList(byId('call-urls'), {keyOf: ({url}) => url, makeItem: makeOption});

    function callCell() {
        let url = '';
        const button = makeButton('Call…', () => call(encoded(url)));
        return {
            nodes: [make('span', {class: 'buttons'}, button)],
            update(endpoint) {
                ({url} = endpoint);
                setAttribute(button, 'aria-label', `Call ${url}…`);
            },
        };
    }

    return {
        show({endpoints}) {
            setText(byId('endpoints-count'), endpoints.length);
            update(endpoints);
            addresses(endpoints);
        },
    };
}

/** An address as a call takes it: with what has a meaning in a URL, or is none of its characters, encoded. */
function encoded(address) {
    return encodeURI(address).replace(/[?#]/g, encodeURIComponent);
}

function makeOption({url}) {
    return {node: make('option', {value: encoded(url)}), update() {}};
}

const States = {R: 'runs', S: 'sleeps', D: 'waits for a disk', T: 'is stopped', I: 'idles'};

export function makeThreads() {
    let before = new Map(); // the CPU time of each, and when that was asked
    const shareOf = ({share}) => (share === null ? '' : `${share.toFixed(share < 10 ? 1 : 0)} %`);
    const update = keyedTable(byId('threads-table'), [
        {title: 'Name', kind: 'file', make: twoLines(({name}) => name, ({id}) => String(id))},
        {title: 'State', make: twoLines(({state}) => States[state] ?? state)},
        {title: 'CPU time', make: twoLines(({cpuMs}) => span(cpuMs))},
        {title: 'CPU now', make: twoLines(shareOf)},
    ], {keyOf: ({id}) => id, more: byId('threads-more')});

    return {
        show({threads}) {
            const now = performance.now();
            const after = new Map();
            const rows = threads.map((thread) => {
                after.set(thread.id, {cpuMs: thread.cpuMs, at: now});
                return {...thread, share: shareSince(before.get(thread.id), thread.cpuMs, now)};
            });
            before = after;
            setText(byId('threads-count'), threads.length);
            update(rows);
        },
    };
}

/** The part of one processor that was used since `before`, in per cent; null if that is not known. */
export function shareSince(before, cpuMs, now) {
    const elapsed = before ? now - before.at : 0;
    return elapsed > 0 && cpuMs >= before.cpuMs ? 100 * (cpuMs - before.cpuMs) / elapsed : null;
}

export function makeConfiguration() {
    const notKnown = keyedList(byId('not-known'), {
        keyOf: (text) => text,
        makeItem: (text) => ({node: make('li', {}, text), update() {}}),
    });
    return {
        show({configuration, host}) {
            setText(byId('configuration-file'), configuration.file);
            setText(byId('configuration-keys'), JSON.stringify(configuration.keys, null, 4));
            setTextOrHide(byId('configuration-others'), configuration.others.length === 0 ? ''
                : `Sections of plugins, which are not shown: ${configuration.others.join(', ')}`);
            notKnown(host.notKnown);
        },
    };
}
