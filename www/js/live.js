// The unit's events. The browser reconnects by itself; after each hello everything is fetched anew by whoever listens, because
// what happened meanwhile was missed. A unit that sends "alive" (every 5 seconds) is expected to go on doing so: its silence then
// counts as a lost connection, since a pulled cable closes none.
// A browser has but six connections to a unit, for all its tabs: a page that `rests` lets go of its own while it is hidden.

const silence_limit_ms = 12000;
const retry_ms = 1500;

export function follow_unit({on_hello, on_event, on_stale, rests = false}) {
    let source = null;
    let silence = null;
    let retry = null;
    let speaks_regularly = false;

    function heard() {
        clearTimeout(silence);
        if (speaks_regularly) silence = setTimeout(start_again, silence_limit_ms);
    }

    function start_again() {
        on_stale();
        open();
    }

    function receive(name, handle) {
        source.addEventListener(name, (message) => {
            handle(parsed(message.data), message.data);
            heard();
        });
    }

    // A source that the browser has given up (the server answered with an error) is opened anew; others try again on their own.
    function failed() {
        on_stale();
        clearTimeout(retry);
        if (source.readyState === EventSource.CLOSED) retry = setTimeout(open, retry_ms);
    }

    function open() {
        if (source !== null) source.close();
        source = new EventSource('/api/events');
        source.addEventListener('error', failed);
        receive('hello', (unit) => on_hello(unit ?? {}));
        receive('alive', () => {
            speaks_regularly = true;
        });
        for (const name of ['levels', 'grid', 'host']) receive(name, (data, text) => on_event(name, data, text));
        heard();
    }

    function rest() {
        source.close();
        clearTimeout(silence);
        clearTimeout(retry);
        on_stale();
    }

    addEventListener('pagehide', () => source.close());
    addEventListener('pageshow', (event) => {
        if (event.persisted) start_again();
    });
    if (rests) document.addEventListener('visibilitychange', () => (document.hidden ? rest() : start_again()));
    open();
}

// Null for what is no JSON: a line of text, or nothing.
function parsed(text) {
    try {
        return JSON.parse(text);
    } catch {
        return null;
    }
}
