"""A generated part of a text file, between two marker lines."""


def split_marked(path, begin, end):
    """Text before, of and after the part; raises ValueError unless it is there once."""
    text = path.read_text(encoding="utf-8")
    if text.count(begin) != 1 or text.count(end) != 1:
        raise ValueError(f'{path}: expected one line "{begin}" and one line "{end}"')
    first = text.index(begin)
    last = text.index(end) + len(end) + 1
    return text[:first], text[first:last], text[last:]


def write_marked(path, part, begin, end):
    """Puts part, its markers included, in the place of the old one."""
    before, _, after = split_marked(path, begin, end)
    path.write_text(before + part + after, encoding="utf-8")
