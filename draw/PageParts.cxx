#include "draw/PageParts.h"

#include "draw/ColourScale.h"
#include "draw/Picture.h"
#include "draw/SvgText.h"
#include "io/FileError.h"
#include "io/PendingFile.h"

#include <fmt/format.h>

#include <fstream>

namespace kelvo {

namespace {

// The policy makes browsers refuse whatever the page does not need: all that is not in the page
// itself, and every script but the one below, of which it has the SHA-256 in base 64.
constexpr const char* kHead = R"(<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta http-equiv="Content-Security-Policy" content="default-src 'none'; style-src 'unsafe-inline'; script-src 'sha256-JhwP3ddloe2OG643bdu7ZLhaUJt1NwgVq7FTk547av0='">
<meta name="viewport" content="width=device-width, initial-scale=1">
<meta name="color-scheme" content="light dark">
<style>
:root { --page: #ffffff; --text: #1d1d1f; --soft: #5c5c61; --line: #d4d4d8; --card: #f6f6f7; --link: #0b5ca8;
  --bad: #b3261e; --good: #0a6b4b }
@media screen and (prefers-color-scheme: dark) {
  :root { --page: #16181c; --text: #e9e9ec; --soft: #a9a9b2; --line: #3a3d44; --card: #1f2228; --link: #7cc0f5;
    --bad: #ff8a7a; --good: #5fd3a8 }
}
* { box-sizing: border-box }
body { margin: 0 auto; max-width: 1360px; padding: 12px; background: var(--page); color: var(--text);
  font: 16px/1.5 system-ui, -apple-system, "Segoe UI", Roboto, "Liberation Sans", Arial, sans-serif }
h1 { font-size: 1.7em; line-height: 1.2; margin: .4em 0 .1em; overflow-wrap: anywhere }
h2 { font-size: 1.3em; margin: 1.8em 0 .5em; padding-top: .5em; border-top: 1px solid var(--line) }
p, li, td.text, dd { overflow-wrap: anywhere }
p { max-width: 46em; margin: .5em 0 }
a { color: var(--link) }
nav a { margin-right: 1em; white-space: nowrap }
.soft { color: var(--soft) }
.bad { color: var(--bad) }
.good { color: var(--good) }
dl { display: grid; grid-template-columns: max-content 1fr; gap: .3em 1.2em; margin: .6em 0 }
dt { color: var(--soft) }
dd { margin: 0 }
.wide { overflow-x: auto }
table { border-collapse: collapse; font-variant-numeric: tabular-nums }
th, td { padding: .35em .9em .35em 0; text-align: right; border-bottom: 1px solid var(--line); vertical-align: top }
th { font-weight: 600; color: var(--soft) }
th:first-child, td:first-child, td.text, th.text { text-align: left }
td { white-space: nowrap }
td.text { white-space: normal; min-width: 14em }
@media (max-width: 600px) { table { font-size: .8em } th, td { padding-right: .5em } }
pre { background: var(--card); padding: .8em; border-radius: 6px; overflow-x: auto; font-size: .85em;
  white-space: pre-wrap; overflow-wrap: anywhere }
code { overflow-wrap: anywhere }
summary { cursor: pointer; color: var(--link) }
.grid { display: grid; grid-template-columns: repeat(auto-fit, minmax(min(100%, 400px), 1fr)); gap: 18px;
  align-items: start }
figure { margin: 0; background: var(--card); border: 1px solid var(--line); border-radius: 8px; padding: 8px;
  break-inside: avoid }
figure svg { display: block; width: 100%; height: auto; border-radius: 4px }
figure:target { outline: 2px solid var(--link) }
figcaption { margin-top: .6em; font-size: .92em }
figcaption p, .picked { margin: .3em 0 }
.picked code { font-size: .85em }
[data-tracks] { cursor: pointer }
rect[fill=transparent]:hover { fill: var(--soft); fill-opacity: .15 }
.buttons { margin: 0 0 .4em }
button { font: inherit; font-size: .85em; padding: .1em .7em; margin-right: .4em; color: var(--text);
  background: var(--page); border: 1px solid var(--line); border-radius: 6px; cursor: pointer }
.zoomed svg { cursor: grab; touch-action: none }
@media print {
  body { max-width: none; padding: 0; font-size: 11px }
  nav, .buttons, .picked { display: none }
  .grid { grid-template-columns: 1fr 1fr; gap: 8px }
  .grid.tracks { grid-template-columns: 1fr 1fr 1fr }
}
)";

constexpr const char* kScript = R"js((() => {
  const word = text => /^[\w.\/,:@%+=-]+$/.test(text) ? text : "'" + text.replaceAll("'", "'\\''") + "'";
  const add = (to, name, text) => {
    const element = document.createElement(name);
    element.textContent = text;
    to.append(element);
    return element;
  };
  const pick = tip => {
    const figure = tip.closest('figure');
    const line = figure.querySelector('.picked') || add(figure, 'p', '');
    line.className = 'picked';
    const tracks = tip.dataset.tracks.split(' ');
    line.textContent = tip.querySelector('title').textContent.split('\n')[0] + ', first tracks: ';
    tracks.forEach((track, i) => {
      if (i > 0) line.append(', ');
      if (document.getElementById('track-' + track)) add(line, 'a', track).href = '#track-' + track;
      else line.append(track);
    });
    add(line, 'br', '');
    add(line, 'code', 'kelvo display ' + word(document.body.dataset.fits) + ' --track ' + tracks.join(' ') + ' -o tracks.html');
  };
  document.addEventListener('click', event => {
    const tip = event.target.closest('[data-tracks]');
    if (tip) pick(tip);
  });
  for (const figure of document.querySelectorAll('figure.zoom')) {
    const svg = figure.querySelector('svg');
    const all = svg.viewBox.baseVal;
    const width = all.width, height = all.height;
    let x = 0, y = 0, times = 1;
    const show = (nextX, nextY, nextTimes) => {
      times = Math.min(Math.max(nextTimes, 1), 200);
      x = Math.min(Math.max(nextX, 0), width - width / times);
      y = Math.min(Math.max(nextY, 0), height - height / times);
      svg.setAttribute('viewBox', [x, y, width / times, height / times].join(' '));
      figure.classList.toggle('zoomed', times > 1);
    };
    const place = event => {
      const box = svg.getBoundingClientRect();
      return [(event.clientX - box.left) / box.width, (event.clientY - box.top) / box.height];
    };
    const zoom = (factor, [left, top]) => {
      const next = Math.min(Math.max(times * factor, 1), 200);
      show(x + left * width * (1 / times - 1 / next), y + top * height * (1 / times - 1 / next), next);
    };
    svg.addEventListener('wheel', event => {
      if (times === 1 && !event.ctrlKey) return;
      event.preventDefault();
      zoom(event.deltaY < 0 ? 1.25 : 0.8, place(event));
    }, {passive: false});
    let from = null;
    svg.addEventListener('pointerdown', event => {
      if (times === 1) return;
      from = place(event);
      svg.setPointerCapture(event.pointerId);
    });
    svg.addEventListener('pointermove', event => {
      if (!from) return;
      const to = place(event);
      show(x - (to[0] - from[0]) * width / times, y - (to[1] - from[1]) * height / times, times);
      from = to;
    });
    for (const end of ['pointerup', 'pointercancel']) svg.addEventListener(end, () => { from = null; });
    svg.addEventListener('dblclick', () => show(0, 0, 1));
    for (const button of figure.querySelectorAll('button'))
      button.addEventListener('click', () => {
        const factor = Number(button.dataset.zoom);
        if (factor === 0) show(0, 0, 1);
        else zoom(factor, [0.5, 0.25]);
      });
  }
})();
)js";

// A picture's colour and the one in its place on a dark page.
struct DarkColour {
  const char* fLight;
  const char* fDark;
};

constexpr DarkColour kDark[] = {
    {colour::kText, "#e6e6e9"},       {colour::kBlack, "#ffffff"},
    {colour::kGrey, "#a2a2ab"},       {colour::kLightGrey, "#4a4d55"},
    {colour::kPaleGrey, "#2d3038"},   {colour::kPaleBlue, "#1d4a68"},
    {colour::kPaleOrange, "#6b4e14"}, {colour::kWhite, "#1f2228"},
    {colour::kBlue, "#4aa8e8"},       {colour::kVermillion, "#ff8a3d"},
    {colour::kGreen, "#2ec49a"},
};

std::string DarkRule(const std::string& light, const std::string& dark) {
  return fmt::format(FMT_STRING("  svg [fill=\"{0}\"] {{ fill: {1} }} svg [stroke=\"{0}\"] {{ "
                                "stroke: {1} }}\n"),
                     light, dark);
}

std::string DarkRules() {
  std::string rules = "@media screen and (prefers-color-scheme: dark) {\n";
  for (int step = -kColourSteps; step <= kColourSteps; step++)
    rules += DarkRule(StepColour(step), StepColourInDark(step));
  for (const DarkColour& colour : kDark) rules += DarkRule(colour.fLight, colour.fDark);
  return rules + "}\n";
}

} // namespace

std::string PageHead(const std::string& title, const std::string& fits) {
  return kHead + DarkRules() + "</style>\n<title>" + Safe(title) +
         "</title>\n</head>\n<body data-fits=\"" + Safe(fits) + "\">\n";
}

std::string PageEnd() {
  return std::string("<script>") + kScript + "</script>\n</body>\n</html>\n";
}

std::string ZoomButtons() {
  return "<p class=\"buttons\"><button data-zoom=\"2\">larger</button><button "
         "data-zoom=\"0.5\">smaller</button><button data-zoom=\"0\">all</button></p>\n";
}

std::string Safe(const std::string& text) {
  return Escaped(Printable(text));
}

void SavePage(const std::string& file, const std::string& html) {
  PendingFile page(file); // as late as possible, for an interrupted run leaves it behind
  std::ofstream out(page.Partial(), std::ios::binary | std::ios::trunc);
  out << html;
  out.close();
  if (!out) throw FileError(file + ": could not be written completely; is the disk full?");
  page.Commit();
}

} // namespace kelvo
