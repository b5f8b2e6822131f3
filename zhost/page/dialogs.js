// SPDX-License-Identifier: Apache-2.0
// Nothing is done to the host before a dialog has asked for it.

import {byId, homeOf, setText, setTextOrHide} from './dom.js';
import {hasToken, reason, setToken} from './door.js';

const question = byId('question');
let pending = null; // what the dialog asks about, while it is open
let isAsking = false; // the host, whose answer is waited for

/**
 * Asks `title`, with a `text` and a `more` that is shown as it is, and does `act` when it is answered by the button
 * `yes`. What `act` gives is told in the page; where it throws, the dialog stays and says why. The focus goes back to
 * `opener`, or near it if that is gone by then.
 */
export function confirm({title, text, more = '', yes, act, opener}) {
    pending = {act, opener, home: homeOf(opener)};
    setText(byId('question-title'), title);
    setText(byId('question-text'), text);
    setTextOrHide(byId('question-more'), more);
    setText(byId('question-error'), '');
    setText(byId('question-yes'), yes);
    question.showModal();
    byId('question-no').focus(); // so that a second Return does no harm
}

question.querySelector('form').addEventListener('submit', async (event) => {
    event.preventDefault();
    if (isAsking)
        return;
    const current = pending;
    isAsking = true;
    question.setAttribute('aria-busy', 'true');
    setText(byId('question-error'), '');
    try {
        const told = await current.act();
        if (told)
            notify(told);
        if (current === pending)
            question.close();
    } catch (error) {
        const text = reason(error);
        if (current === pending)
            setText(byId('question-error'), text);
        else
            notify(text);
    } finally {
        isAsking = false;
        question.removeAttribute('aria-busy');
    }
});
byId('question-no').addEventListener('click', () => question.close());
question.addEventListener('close', () => {
    const {opener, home} = pending;
    pending = null;
    (opener.checkVisibility() ? opener : home).focus();
});

/** Tells what has come of something; it stays until the next time. */
export function notify(text) {
    setText(byId('notice-text'), text);
    byId('notice-close').hidden = !text;
}
byId('notice-close').addEventListener('click', () => {
    notify('');
    byId('main').focus();
});

const tokenDialog = byId('token');
const tokenInput = byId('token-input');
let wanted = null; // the promise of a token, and how to keep it

/** Comes back when there is a new token: for everybody who waits, one dialog. */
export function wantToken() {
    if (!wanted) {
        wanted = {};
        wanted.promise = new Promise((resolve) => {
            wanted.resolve = resolve;
        });
        setText(byId('token-error'), hasToken() ? 'The host does not take this token.' : '');
        if (question.open)
            question.close();
        openTokenDialog();
    }
    return wanted.promise;
}

function openTokenDialog() {
    byId('token-button').hidden = false;
    tokenInput.value = '';
    tokenDialog.showModal();
}

tokenDialog.querySelector('form').addEventListener('submit', (event) => {
    event.preventDefault();
    setToken(tokenInput.value);
    tokenInput.value = '';
    tokenDialog.close();
    byId('token-button').hidden = true;
    const {resolve} = wanted;
    wanted = null;
    resolve();
});
byId('token-no').addEventListener('click', () => tokenDialog.close());
byId('token-button').addEventListener('click', openTokenDialog);
