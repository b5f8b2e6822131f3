// SPDX-License-Identifier: Apache-2.0
import {confirm} from './dialogs.js';
import {byId, make, setText, setTextOrHide} from './dom.js';
import {post} from './door.js';
import {span} from './words.js';

/** What the form has as the object to send; throws a sentence where it is none. */
function parseObject(text) {
    let value = null;
    try {
        value = JSON.parse(text.trim() || '{}');
    } catch (error) {
        throw new Error(`This is no JSON: ${error.message}`);
    }
    if (value === null || typeof value !== 'object' || Array.isArray(value))
        throw new Error('It has to be an object, as {"name": "value"}.');
    return value;
}

/** The form for a call. `refresh` asks the host once more. */
export function makeCall(refresh) {
    const url = byId('call-url');
    const input = byId('call-in');
    const deadline = byId('call-deadline');

    byId('call-form').addEventListener('submit', (event) => {
        event.preventDefault();
        try {
            const object = parseObject(input.value);
            markInput('');
            ask(url.value.trim(), object, Number(deadline.value), event.submitter ?? url);
        } catch (error) {
            markInput(error.message);
            input.focus();
        }
    });

    function markInput(text) {
        setText(byId('call-error'), text);
        input.setAttribute('aria-invalid', String(text !== ''));
    }

    function ask(address, object, deadlineMs, opener) {
        const isBroadcast = !address.startsWith('//') || address.startsWith('///');
        confirm({
            title: `Call ${address}?`,
            text: isBroadcast ? 'This has no host, so every endpoint is called, with:' : 'It is called with:',
            more: JSON.stringify(object, null, 4),
            yes: 'Call', opener,
            act: () => call(address, object, deadlineMs),
        });
    }

    async function call(address, object, deadlineMs) {
        const begin = performance.now();
        const query = new URLSearchParams({url: address, deadline: deadlineMs});
        const called = await post(`/v1/call?${query}`,
                                  {body: JSON.stringify(object), patienceMs: deadlineMs + 5000});
        show(address, called, performance.now() - begin);
        refresh();
    }

    function show(address, {handled, out, reason}, ms) {
        const sentence = handled ? `${address} has handled it, in ${span(ms)}.`
                                 : `${address}: not handled${reason ? `: ${reason}` : ''}`;
        byId('call-result').replaceChildren(
            make('span', {class: `badge ${handled ? 'good' : 'bad'}`}, handled ? 'handled' : 'not handled'), ' ',
            sentence);
        setTextOrHide(byId('call-out'), JSON.stringify(out, null, 4));
    }

    return {
        /** Puts an address into the form, for somebody to go on with. */
        fill(address) {
            url.value = address;
            input.focus();
            byId('call').scrollIntoView({block: 'nearest'});
        },
    };
}
