// The search of the site: finds names, headings, and all text of the pages, such as the text of an exception.
// search-index.js, which scripts/docs writes, has an entry [title, address, text] for each place that can be found.
document.addEventListener("DOMContentLoaded", () => {
    const area = document.createElement("div");
    area.id = "search-area";
    area.innerHTML = '<div id="MSearchBox"><input id="MSearchField" type="search" autocomplete="off" ' +
        'placeholder="Search, also for the text of an error" aria-label="Search"></div><ul id="search-results"></ul>';
    document.getElementById("titlearea").append(area);
    const field = area.querySelector("input");
    const list = area.querySelector("ul");
    const folded = searchIndex.map(([title, , text]) => [title.toLowerCase(), text.toLowerCase()]);

    // An entry has to contain each word. Titles count more than texts, and the whole input more than its words. A
    // message that a program has printed has more words than the title that it contains. The longest title wins.
    const points = ([title, text], input, words) => {
        if (title.length > 8 && input.includes(title)) return 16 + title.length;
        if (!words.every(word => title.includes(word) || text.includes(word))) return 0;
        return 1 + 8 * title.startsWith(input) + 4 * title.includes(input) + 2 * text.includes(input) +
            words.every(word => title.includes(word));
    };
    const show = () => {
        const input = field.value.trim().toLowerCase().replace(/\s+/g, " ");
        const words = input.split(" ");
        const found = input.length < 2 ? [] : folded.map((entry, index) => [points(entry, input, words), index])
            .filter(([score]) => score).sort((a, b) => b[0] - a[0] || a[1] - b[1]).slice(0, 20);
        list.replaceChildren(...found.map(([, index]) => {
            const [title, address, text] = searchIndex[index];
            const link = document.createElement("a");
            link.href = address;
            link.append(title);
            const excerpt = document.createElement("small");
            const start = Math.max(0, folded[index][1].indexOf(words[0]) - 40);
            excerpt.append((start ? "… " : "") + text.slice(start, start + 140));
            link.append(excerpt);
            const item = document.createElement("li");
            item.append(link);
            return item;
        }));
        if (input.length > 1 && !found.length) list.innerHTML = "<li>Nothing found</li>";
    };
    field.addEventListener("input", show);
    field.addEventListener("keydown", event => {
        const first = list.querySelector("a");
        if (event.key === "Enter" && first) location.href = first.href;
        if (event.key === "Escape") { field.value = ""; show(); }
    });
    document.addEventListener("keydown", event => {
        if (event.key === "/" && document.activeElement !== field) { event.preventDefault(); field.focus(); }
    });
    area.addEventListener("click", event => {
        // A link to a place on the same page does not load it anew.
        if (event.target.closest("a")) { field.value = ""; setTimeout(show); }
    });
});
