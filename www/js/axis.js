// Where the items of one direction of the grid lie: groups one behind the other, each with room for its name in front, the items
// of a group side by side. Only what lies in the window is drawn, so the places have to be found without the drawing.

export class Axis {
    // `before`: room in front of each group; `least`: the shortest a group may be, so that its name can be read.
    constructor(items, {size, before, least = 0}) {
        this.items = items;
        this.size = size;
        this.offsets = [];
        this.groups = [];
        this.places = new Map();
        let end = 0;
        items.forEach((item, place) => {
            let group = this.groups.at(-1);
            if (group?.name !== item.group) {
                if (group !== undefined) end = Math.max(end, group.start + least);
                group = {name: item.group, start: end + before, end: 0};
                this.groups.push(group);
                end += before;
            }
            this.offsets.push(end);
            this.places.set(item.key, place);
            end += size;
            group.end = Math.max(end, group.start + least);
        });
        this.length = this.groups.at(-1)?.end ?? 0;
    }

    // Places [first, last) of the items that lie between two offsets.
    window(from, to) {
        return [this.first_after(from - this.size), this.first_after(to)];
    }

    // The first place whose offset is above the given one.
    first_after(offset) {
        let low = 0;
        let high = this.offsets.length;
        while (low < high) {
            const middle = (low + high) >> 1;
            if (this.offsets[middle] > offset) high = middle;
            else low = middle + 1;
        }
        return low;
    }

    place_of(key) {
        return this.places.get(key) ?? -1;
    }
}
