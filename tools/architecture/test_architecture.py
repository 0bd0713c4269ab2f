"""Folders made for the purpose, with includes that point down, up and sideways."""

import contextlib
import io
import tempfile
import unittest
import xml.etree.ElementTree as xml
from pathlib import Path

import architecture

SVG = "{http://www.w3.org/2000/svg}"


class ArrowsOfAFewSources(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.top = Path(folder.name).resolve()
        self.write("docs/img/architecture.svg", "")
        for header in ("draw/Page.h", "run/Loop.h", "io/File.h", "func/Fit.h", "util/Text.h", "bench/Clock.h"):
            self.write(header, "#pragma once\n")
        self.write("draw/Page.cxx", '#include "draw/Page.h"\n#include <vector>\n#include "io/File.h"\n')
        self.write("io/File.cxx", '#include "func/Fit.h"\n#include "util/Text.h"\n')
        self.write("func/Fit.cxx", '#include "Fit.h"\n# include <util/Text.h>\n')

    def write(self, name, text):
        file = self.top / name
        file.parent.mkdir(parents=True, exist_ok=True)
        file.write_text(text)

    def run_it(self, check=False):
        errors = io.StringIO()
        with contextlib.redirect_stderr(errors):
            code = architecture.main(self.top, check)
        return code, errors.getvalue()

    def test_includes_that_point_down_pass(self):
        self.assertEqual(self.run_it(), (0, ""))
        self.assertEqual(self.run_it(check=True), (0, ""))

    def test_an_include_of_what_lies_above_is_told_with_its_line(self):
        self.write("io/File.h", '#pragma once\n#include "draw/Page.h"\n')
        for check in (False, True):
            code, errors = self.run_it(check)
            self.assertEqual(code, 1)
            self.assertEqual(errors, "io/File.h:2: io/ includes draw/, which does not lie below it\n")

    def test_neighbours_do_not_include_each_other(self):
        self.write("draw/Page.h", '#include "run/Loop.h"\n')
        self.write("run/Loop.h", '#include "../draw/Page.h"\n')
        self.assertEqual(
            self.run_it()[1],
            "draw/Page.h:1: draw/ includes run/, which does not lie below it\n"
            "run/Loop.h:1: run/ includes draw/, which does not lie below it\n",
        )

    def test_the_libraries_include_nothing_of_tests_and_benchmarks(self):
        self.write("util/Text.cxx", '#include "bench/Clock.h"\n')
        self.assertEqual(
            self.run_it()[1],
            "util/Text.cxx:1: util/ includes bench/, which is no folder of the libraries\n",
        )

    def test_a_drawing_older_than_the_sources_is_told(self):
        self.run_it()
        self.write("draw/Page.h", '#include "util/Text.h"\n')
        self.assertEqual(self.run_it(check=True), (0, ""), "the way over io/ is there already")
        self.write("run/Loop.h", '#include "util/Text.h"\n')
        code, errors = self.run_it(check=True)
        self.assertEqual(code, 1)
        self.assertIn("docs/img/architecture.svg is not what the sources say", errors)

    def test_an_arrow_is_drawn_where_no_way_leads_through_other_folders(self):
        found = list(architecture.includes(self.top))
        self.assertEqual(
            architecture.drawn_arrows(found), [("draw", "io"), ("func", "util"), ("io", "func")]
        )

    def test_the_drawing_has_a_box_for_each_folder_and_stays_inside_its_frame(self):
        self.write("app/Main.cxx", '#include "util/Text.h"\n')
        self.run_it()
        svg = xml.parse(self.top / "docs/img/architecture.svg").getroot()
        names = [text.text for text in svg.iter(f"{SVG}text") if not text.get("class")]
        self.assertEqual(names, [f"{name}/" for name in architecture.ROW_OF])
        width, height = (float(x) for x in svg.get("viewBox").split()[2:])
        for rect in svg.iter(f"{SVG}rect"):
            x, y, w, h = (float(rect.get(key, 0)) for key in ("x", "y", "width", "height"))
            self.assertTrue(0 <= x and x + w <= width and 0 <= y and y + h <= height)


if __name__ == "__main__":
    unittest.main()
