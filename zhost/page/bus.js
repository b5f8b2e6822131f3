// SPDX-License-Identifier: Apache-2.0
// The bus past this process: the connection, the hosts that were seen, calls and why they have failed.

import {byId, factsList, keyedTable, setText, twoLines} from './dom.js';
import {ago, clock, number, span} from './words.js';

const milliseconds = (ms) => (ms > 0 && ms < 10 ? `${Number(ms.toPrecision(2))} ms` : span(ms));

/** Why it reaches no other process; empty if it does. */
export function busTrouble({bus}) {
    if (!bus)
        return '';
    if (bus.error)
        return `What the bus does is not known: ${bus.error}`;
    const {state, error} = bus.connection;
    return state === 'connected' ? '' : `The bus reaches no other process: ${state}${error ? `, ${error}` : ''}`;
}

function callsWords({calls, failures, underWay, p50Ms, p99Ms}) {
    if (calls === 0)
        return underWay ? `${underWay} under way` : 'none yet';
    const took = `${milliseconds(p50Ms)} in the middle, ${milliseconds(p99Ms)} at the slow end`;
    return `${number(calls, 'call')}, ${failures} failed, ${underWay} under way; ${took}`;
}

function connectionWords({state, server, since, rttMs}) {
    if (state !== 'connected')
        return state;
    return [`${state} to ${server || 'a broker'}`, since && `since ${clock(since)}`,
            rttMs > 0 && `${milliseconds(rttMs)} there and back`].filter(Boolean).join(', ');
}

const reasonsWords = (reasons) => [...reasons].sort((a, b) => b.failures - a.failures)
    .map(({reason, failures}) => `${reason} ${failures}`).join(', ');

const leaseWords = ({name, state, holder}) =>
    `${name}: ${state === 'held' ? 'this process has it' : holder ? `${holder} has it` : state || 'unknown'}`;

function factsOf(bus) {
    const {connection, queue} = bus;
    return [
        ['This process', bus.name && `${bus.name}, in the domain ${bus.domain}`],
        ['Connection', connectionWords(connection)],
        ['Made anew', connection.reconnects ? number(connection.reconnects, 'time') : ''],
        ['Last error', connection.error],
        ['Calls to others', callsWords(bus.out)],
        ['Why they failed', reasonsWords(bus.reasons)],
        ['Calls from others', callsWords(bus.in)],
        ['Queue', `${queue.running} of ${number(queue.workers, 'thread')} busy, ${queue.waiting} waiting`],
        ['Others may call', bus.served.join(', ')],
        ['Leases', bus.leases.map(leaseWords).join(', ')],
    ];
}

export function makeBus() {
    const facts = factsList(byId('bus-facts'));
    const hosts = keyedTable(byId('bus-hosts'), [
        {title: 'Host', kind: 'file', make: twoLines(({name}) => name)},
        {title: 'Seen', make: twoLines(({seen}) => ago(seen) || 'not known')},
        {title: 'Its clock', make: twoLines(({skewMs}) => (Math.abs(skewMs) < 1 ? 'agrees'
            : `${span(Math.abs(skewMs))} ${skewMs > 0 ? 'ahead' : 'behind'}`))},
    ], {keyOf: ({name}) => name, more: byId('bus-more')});

    return {
        show(report) {
            const {bus} = report;
            byId('bus').hidden = !bus;
            if (!bus)
                return;
            setText(byId('bus-count'), bus.error ? '' : `${number(bus.hosts.length, 'host')} seen`);
            facts(bus.error ? [['Not known', bus.error]] : factsOf(bus));
            hosts(bus.hosts);
        },
    };
}
