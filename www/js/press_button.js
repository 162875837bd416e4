// A button that is down for as long as a finger, the mouse, Space or Enter holds it down.

const pulse_ms = 150;

// set(down) is called at every change. Leaving the button or the page lets go of it: nothing may stay pressed unseen.
export function make_pressable(button, set) {
    let down = false;

    function change(to) {
        if (to === down || (to && button.disabled)) return;
        down = to;
        button.classList.toggle('down', down);
        set(down);
    }

    const holds = (key) => key === ' ' || key === 'Enter';
    button.addEventListener('pointerdown', (event) => {
        if (event.button !== 0) return;
        button.setPointerCapture(event.pointerId);
        change(true);
    });
    for (const end of ['pointerup', 'pointercancel', 'lostpointercapture', 'blur'])
        button.addEventListener(end, () => change(false));
    button.addEventListener('keydown', (event) => {
        if (!holds(event.key)) return;
        event.preventDefault();
        if (!event.repeat) change(true);
    });
    button.addEventListener('keyup', (event) => {
        if (holds(event.key)) change(false);
    });
    button.addEventListener('contextmenu', (event) => event.preventDefault());
    // A screen reader clicks without pressing.
    button.addEventListener('click', (event) => {
        if (event.detail !== 0 || down) return;
        change(true);
        setTimeout(() => change(false), pulse_ms);
    });
    addEventListener('pagehide', () => change(false));
    document.addEventListener('visibilitychange', () => {
        if (document.hidden) change(false);
    });
    return {is_down: () => down};
}
