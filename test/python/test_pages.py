"""Report pages as a browser shows them, on a wide screen and on a telephone."""

import base64
import hashlib
import os
import pathlib
import re
import shutil
import subprocess
import xml.etree.ElementTree

import pytest
from browser import Browser, find_chromium

SOURCE = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(os.environ.get("KELVO_BUILD_DIR", SOURCE / "build/release"))
COMMAND = BUILD / "bin/kelvo"
HITS = SOURCE / "examples/data/fine_mu_hits_smeared.csv.gz"
EVIL = "<script>document.title='taken'</script>"
WIDTHS = {"desktop": 1280, "phone": 360}

chromium = find_chromium()
needs_chromium = pytest.mark.skipif(not chromium, reason="Chromium is not installed")


@pytest.fixture(scope="module")
def folder(tmp_path_factory):
    """A report on 150 tracks, two of which cannot be fitted, with a name that is a script."""
    folder = tmp_path_factory.mktemp("pages")
    text = (SOURCE / "detectors/fine.toml").read_text()
    detector = folder / "evil.toml"
    detector.write_text(text.replace('name = "fine"', f'name = "{EVIL}"', 1))
    bad = folder / f"{EVIL.replace('/', '|')}.csv"
    bad.write_text(f"track,view,u,z,sigu\n1,X,{EVIL.replace(',', '')},3,1\n2,Y,1,9,1\n")
    result = subprocess.run(
        [COMMAND, "fit", HITS, bad, "--planes", "--limit", "3002", "-d", detector, "-o", "fits.root",
         "--report", "report.html"],
        cwd=folder, capture_output=True, text=True)
    assert result.returncode == 1, result.stderr  # some of the input could not be used
    return folder


@pytest.fixture(scope="module")
def browser():
    with Browser(chromium) as browser:
        yield browser


SIZES = """
[...document.querySelectorAll('figure svg')].map(svg => {
  const box = svg.getBoundingClientRect();
  return [box.left, box.right, box.width, box.height];
})
"""

# The smallest letters of any picture, as they come out on the screen.
SMALLEST_TEXT = """
Math.min(...[...document.querySelectorAll('figure svg text')].map(
  text => text.getBoundingClientRect().height))
"""

# Texts of a picture that reach over its edge.
CLIPPED = """
[...document.querySelectorAll('figure svg')].flatMap(svg => {
  const box = svg.getBoundingClientRect();
  return [...svg.querySelectorAll('text')].filter(text => {
    const b = text.getBoundingClientRect();
    return b.left < box.left - 1 || b.right > box.right + 1 ||
           b.top < box.top - 1 || b.bottom > box.bottom + 1;
  }).map(text => text.textContent);
})
"""

# Pairs of texts of one picture that lie on each other.
OVERLAPPING = """
[...document.querySelectorAll('figure svg')].flatMap(svg => {
  const texts = [...svg.querySelectorAll('text')];
  const boxes = texts.map(text => text.getBoundingClientRect());
  const pairs = [];
  for (let i = 0; i < boxes.length; ++i)
    for (let k = i + 1; k < boxes.length; ++k) {
      const a = boxes[i], b = boxes[k];
      const wide = Math.min(a.right, b.right) - Math.max(a.left, b.left);
      const high = Math.min(a.bottom, b.bottom) - Math.max(a.top, b.top);
      if (wide > 1 && high > 0.35 * Math.min(a.height, b.height))
        pairs.push(texts[i].textContent + ' | ' + texts[k].textContent);
    }
  return pairs;
})
"""


# Letters with too little contrast to the ground of their picture.
LOW_CONTRAST = """
(() => {
  const light = colour => {
    const [r, g, b] = colour.match(/\\d+/g).map(c => c / 255)
      .map(c => c <= 0.03928 ? c / 12.92 : ((c + 0.055) / 1.055) ** 2.4);
    return 0.2126 * r + 0.7152 * g + 0.0722 * b;
  };
  const ground = light(getComputedStyle(document.querySelector('figure svg > rect')).fill);
  return [...document.querySelectorAll('figure svg text')].filter(text => {
    const ink = light(getComputedStyle(text).fill);
    return (Math.max(ink, ground) + 0.05) / (Math.min(ink, ground) + 0.05) < 4.5;
  }).map(text => text.textContent);
})()
"""


@needs_chromium
@pytest.mark.parametrize("dark", [False, True], ids=["light", "dark"])
@pytest.mark.parametrize("width", WIDTHS.values(), ids=WIDTHS.keys())
def test_every_picture_is_there_and_has_a_size(folder, browser, width, dark):
    browser.open(folder / "report.html", width, dark=dark)
    sizes = browser.evaluate(SIZES)
    assert len(sizes) == 30
    for left, right, wide, high in sizes:
        assert wide > 0.8 * min(width, 380)
        assert high > 0.3 * wide
        assert left >= 0 and right <= width
    assert browser.evaluate("document.documentElement.scrollWidth") <= width


@needs_chromium
@pytest.mark.parametrize("width", WIDTHS.values(), ids=WIDTHS.keys())
def test_nothing_leaves_the_page_and_no_script_runs_but_its_own(folder, browser, width):
    browser.open(folder / "report.html", width)
    assert browser.requests() == [(folder / "report.html").as_uri()]
    assert browser.complaints() == []
    assert browser.evaluate("document.scripts.length") == 1
    browser.evaluate("""{
      const script = document.createElement('script');
      script.textContent = "document.title = 'taken'";
      document.body.append(script);
    }""")
    assert browser.evaluate("document.title") == f"Fit report: {EVIL}"


@needs_chromium
def test_names_and_messages_show_as_text(folder, browser):
    browser.open(folder / "report.html", WIDTHS["phone"])
    assert browser.evaluate("document.querySelector('h1').innerText") == f"Fit report: {EVIL}"
    failures = browser.evaluate("document.querySelector('#failures ~ div').innerText")
    assert "<script>document.title='taken'" in failures
    assert "track 2: " in failures


@needs_chromium
@pytest.mark.parametrize("width", WIDTHS.values(), ids=WIDTHS.keys())
def test_no_text_of_a_picture_is_clipped_overlapping_or_tiny(folder, browser, width):
    browser.open(folder / "report.html", width)
    assert browser.evaluate(CLIPPED) == []
    assert browser.evaluate(OVERLAPPING) == []
    assert browser.evaluate(SMALLEST_TEXT) >= 9


@needs_chromium
def test_page_and_pictures_follow_light_and_dark(folder, browser):
    colour = "getComputedStyle(document.{}).backgroundColor"
    for dark, page in ((False, "rgb(255, 255, 255)"), (True, "rgb(22, 24, 28)")):
        browser.open(folder / "report.html", WIDTHS["desktop"], dark=dark)
        assert browser.evaluate(colour.format("body")) == page
        ground = "getComputedStyle(document.querySelector('figure svg > rect')).fill"
        assert browser.evaluate(ground) == ("rgb(31, 34, 40)" if dark else "rgb(255, 255, 255)")
        # Letters and lines against the ground of their picture, as WCAG 2.1 reckons contrast.
        assert browser.evaluate(LOW_CONTRAST) == []


@needs_chromium
def test_a_click_on_a_bin_shows_its_tracks(folder, browser):
    browser.open(folder / "report.html", WIDTHS["desktop"])
    # One with a track that the page displays.
    tracks = browser.evaluate("""(() => {
      const tip = [...document.querySelectorAll('rect[data-tracks]')].find(
        tip => tip.dataset.tracks.split(' ').some(n => document.getElementById('track-' + n)));
      tip.dispatchEvent(new MouseEvent('click', {bubbles: true}));
      return tip.dataset.tracks;
    })()""")
    picked = browser.evaluate("document.querySelector('.picked').innerText")
    assert ", first tracks: " + tracks.replace(" ", ", ") in picked
    assert f"kelvo display fits.root --track {tracks} -o tracks.html" in picked
    for link in browser.evaluate(
            "[...document.querySelectorAll('.picked a')].map(a => a.getAttribute('href'))"):
        assert link.removeprefix("#track-") in tracks.split()
        assert browser.evaluate(f"document.querySelector('{link}').tagName") == "FIGURE"


@needs_chromium
def test_pictures_of_tracks_can_be_enlarged_and_moved(folder, browser):
    browser.open(folder / "report.html", WIDTHS["desktop"])
    box = "document.querySelector('figure.zoom svg').getAttribute('viewBox').split(' ').map(Number)"
    click = "document.querySelector('figure.zoom button[data-zoom=\"{}\"]').click()"
    whole = browser.evaluate(box)
    browser.evaluate(click.format("2"))
    left, top, width, height = browser.evaluate(box)
    assert (width, height) == (whole[2] / 2, whole[3] / 2)
    assert left == whole[2] / 4
    browser.evaluate("""{
      const svg = document.querySelector('figure.zoom svg');
      const box = svg.getBoundingClientRect();
      svg.setPointerCapture = () => {};
      for (const [type, x] of [['pointerdown', 100], ['pointermove', 80], ['pointerup', 80]])
        svg.dispatchEvent(new PointerEvent(type, {clientX: box.left + x, clientY: box.top + 50}));
    }""")
    moved = browser.evaluate(box)
    shown = browser.evaluate("document.querySelector('figure.zoom svg').getBoundingClientRect().width")
    assert moved[0] == pytest.approx(left + 20 * width / shown)
    assert moved[1] == pytest.approx(top)
    browser.evaluate(click.format("0"))
    assert browser.evaluate(box) == whole


@needs_chromium
def test_the_page_of_tracks_shows_them_with_names_as_text(folder, browser):
    shutil.copy(folder / "fits.root", folder / f"{EVIL.replace('/', '|')}.root")
    subprocess.run([COMMAND, "display", f"{EVIL.replace('/', '|')}.root", "--track", "3", "17",
                    "--worst", "4", "-o", "tracks.html"],
                   cwd=folder, check=True, stdout=subprocess.DEVNULL)
    browser.open(folder / "tracks.html", WIDTHS["phone"])
    assert browser.complaints() == []
    assert browser.evaluate("document.querySelectorAll('figure.zoom').length") == 6
    assert browser.evaluate("document.title") == f"Tracks of {EVIL.replace('/', '|')}.root"
    assert browser.evaluate(CLIPPED) == []
    assert browser.evaluate(OVERLAPPING) == []
    assert browser.evaluate("document.documentElement.scrollWidth") <= WIDTHS["phone"]


@needs_chromium
def test_stand_alone_pictures_fit_the_window(folder, browser):
    subprocess.run([COMMAND, "display", "fits.root", "--track", "17", "-o", "track.svg"],
                   cwd=folder, check=True, stdout=subprocess.DEVNULL)
    browser.open(folder / "track.svg", WIDTHS["desktop"])
    box = "document.documentElement.getBoundingClientRect().{}"
    assert browser.evaluate(box.format("width")) == 640
    assert browser.requests() == [(folder / "track.svg").as_uri()]


# Both smooth edges in their own way, so that squares of a few dots are compared; a line or letter out
# of its place changes some by more than 0.4.
@needs_chromium
def test_a_png_is_what_a_browser_shows(folder, browser):
    numpy = pytest.importorskip("numpy")
    imread = pytest.importorskip("matplotlib.image").imread
    for name in ("track.svg", "track.png"):
        result = subprocess.run([COMMAND, "display", "fits.root", "--track", "17", "-o", name],
                                cwd=folder, capture_output=True, text=True)
        if "built without librsvg" in result.stderr:
            pytest.skip("built without librsvg")
        assert result.returncode == 0, result.stderr
    png = imread(folder / "track.png")[:, :, :3]
    height, width = png.shape[0] // 2, png.shape[1] // 2
    browser.open(folder / "track.svg", width, height)
    browser.screenshot(folder / "browser.png", whole=False)
    shown = imread(folder / "browser.png")[:, :, :3]
    assert shown.shape == (height, width, 3)

    def squares(dots, size):
        rows, columns = height // 8, width // 8
        return dots[:rows * size, :columns * size].reshape(rows, size, columns, size, 3).mean((1, 3))

    assert numpy.abs(squares(shown, 8) - squares(png, 16)).max() < 0.2


def test_pages_and_pictures_are_well_formed(folder):
    subprocess.run([COMMAND, "display", "fits.root", "--track", "3", "-o", "track.svg"],
                   cwd=folder, check=True, stdout=subprocess.DEVNULL)
    subprocess.run([COMMAND, "detector", "evil.toml", "-o", "detector.svg"],
                   cwd=folder, check=True, stdout=subprocess.DEVNULL)
    for name in ("track.svg", "detector.svg"):
        root = xml.etree.ElementTree.parse(folder / name).getroot()
        assert root.tag == "{http://www.w3.org/2000/svg}svg"
    texts = [element.text for element in root.iter("{http://www.w3.org/2000/svg}text")]
    assert EVIL in texts
    page = (folder / "report.html").read_text(encoding="utf-8")
    assert len(page) < 5_000_000
    scripts = re.findall(r"<script>(.*?)</script>", page, re.DOTALL)
    assert page.count("<script") == len(scripts) == 1
    digest = base64.b64encode(hashlib.sha256(scripts[0].encode()).digest()).decode()
    assert f"script-src 'sha256-{digest}'" in page
