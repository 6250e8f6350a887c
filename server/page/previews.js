"use strict";

const search = document.querySelector("input");
const found = document.querySelector("header p");
const sections = [...document.querySelectorAll("section")];
const dialog = document.querySelector("dialog");
const enlarged = new Image();
const all = found.textContent;
const caption = dialog.querySelector("p");
let shown = null; // the link whose picture is enlarged

// Without this script the links lead to the pictures; what it adds is hidden until it runs.
search.hidden = false;
dialog.prepend(enlarged);

// Of what a task and its files are called; not of the times.
const texts = sections.map((section) =>
    [...section.querySelectorAll("h2, h3, p, .photos a")].map((element) => element.textContent).join("\n").toLowerCase());

function filter() {
    const words = search.value.toLowerCase().split(/\s+/);
    let count = 0;
    sections.forEach((section, index) => {
        section.hidden = !words.every((word) => texts[index].includes(word));
        count += section.hidden ? 0 : 1;
    });
    found.textContent = search.value.trim() === "" ? all : `${count} of ${all}`;
}

function show(link) {
    shown = link;
    enlarged.src = link.href;
    const film = link.closest(".film");
    caption.textContent = (film === null ? "" : `${film.previousElementSibling.textContent} · `) + link.textContent;
    enlarged.alt = caption.textContent;
    if (!dialog.open) {
        dialog.showModal();
    }
}

function step(by) {
    const links = [...document.querySelectorAll("section:not([hidden]) a")];
    const next = links[links.indexOf(shown) + by];
    if (next !== undefined) {
        show(next);
    }
}

search.addEventListener("input", filter);
filter(); // a page that is loaded again may come with what was searched for

document.querySelector("main").addEventListener("click", (event) => {
    const link = event.target.closest("a");
    if (link !== null && event.button === 0 && !event.ctrlKey && !event.metaKey && !event.shiftKey) {
        event.preventDefault();
        show(link);
    }
});

dialog.addEventListener("click", (event) => {
    const button = event.target.closest("button");
    if (button !== null && button.dataset.step !== undefined) {
        step(Number(button.dataset.step));
    } else {
        dialog.close();
    }
});

dialog.addEventListener("close", () => {
    enlarged.removeAttribute("src");
    shown.focus();
});

document.addEventListener("keydown", (event) => {
    if (dialog.open && (event.key === "ArrowRight" || event.key === "ArrowLeft")) {
        event.preventDefault();
        step(event.key === "ArrowRight" ? 1 : -1);
    } else if (!dialog.open && event.key === "/" && document.activeElement !== search) {
        event.preventDefault();
        search.focus();
    }
});
