// Keeps the page's picture of the grid right: fetches the grid, takes the levels that the unit reports, and lets neither of them
// overwrite what is newer in the other.
import {get_grid} from './api.js';
import {GridModel} from './model.js';

export class GridStore {
    constructor({on_model, on_levels}) {
        this.model = new GridModel();
        this.on_model = on_model;
        this.on_levels = on_levels;
        this.fetching = null;
        this.next = null;
        this.reported = [];
    }

    // Resolves when a grid that was asked for after this call is shown. However many ask meanwhile, one request serves them.
    refresh() {
        if (this.fetching === null) return this.begin();
        this.next ??= this.fetching.then(
            () => this.begin(),
            () => this.begin()
        );
        return this.next;
    }

    begin() {
        this.next = null;
        this.reported = [];
        this.fetching = this.fetch_and_show().finally(() => {
            this.fetching = null;
        });
        return this.fetching;
    }

    // Levels that are reported while the grid is on its way may be newer than it, so they are taken again on top of it. One that
    // is older is followed by the newer one, as the unit reports every change.
    async fetch_and_show() {
        const model = new GridModel(await get_grid());
        for (const levels of this.reported) model.take_levels(levels);
        this.model = model;
        this.on_model(model);
    }

    take_levels(levels) {
        if (this.fetching !== null) this.reported.push(levels);
        const changed = this.model.take_levels(levels);
        if (changed.size > 0) this.on_levels(changed);
    }
}
