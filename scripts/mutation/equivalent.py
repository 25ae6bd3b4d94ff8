"""Reads the list of changes that mean the same as the code: FILE ## LINE'S TEXT ## CHANGE ## REASON, one a line."""

from changes import Source
from tree import Failed, ROOT

LIST = ROOT / "scripts" / "mutation" / "equivalent"


class Equivalents:
    def __init__(self):
        self.entries = {}  # (file, the line's text, the change): number of the line in the list
        for number, line in enumerate(LIST.read_text().splitlines(), 1):
            if line and not line.startswith("# "):
                fields = [field.strip() for field in line.split(" ## ")]
                if len(fields) != 4 or not all(fields):
                    raise Failed(f"{LIST}:{number}: FILE ## LINE'S TEXT ## CHANGE ## REASON is expected")
                self.entries[tuple(fields[:3])] = number

    def has(self, change):
        return (change.file, change.source, change.what) in self.entries

    def stale(self):
        """Entries that no longer are a change of a line of their file."""
        possible = set()
        for file in {entry[0] for entry in self.entries}:
            if (ROOT / file).is_file():
                source = Source(file, (ROOT / file).read_text())
                possible |= {(file, change.source, change.what) for change in source.all()}
        return [f"{LIST.relative_to(ROOT)}:{number}: no such change of {entry[0]} any more: {entry[1]}"
                for entry, number in self.entries.items() if entry not in possible]
