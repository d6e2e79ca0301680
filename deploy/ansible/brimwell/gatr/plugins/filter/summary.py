"""Filters that turn the collected hosts' results (one mapping per host, as the gatr role
records them) into the fleet summary's CSV text and the table shown at the end of the play."""
import csv
import io

# The summary's columns, in the CSV's order.
COLUMNS = ("host", "outcome", "archive", "size", "sha256_verified", "seconds", "step", "reason")
# The row of a host that went unreachable, which records nothing itself.
UNREACHABLE = {"outcome": "unreachable", "archive": None, "size": None, "sha256_verified": "no",
               "seconds": None, "step": "", "reason": "the host could not be reached"}


def summary_rows(hostvars, hosts):
    """One row per host of hosts, in that order: the gatr_result it recorded (with size and
    seconds as numbers, which templating leaves as text), or, for a host that has none (it
    went unreachable), a row saying so."""
    rows = []
    for host in hosts:
        row = dict(hostvars[host].get("gatr_result") or dict(host=host, **UNREACHABLE))
        for key, kind in (("size", int), ("seconds", float)):
            if row.get(key) not in (None, ""):
                row[key] = kind(row[key])
        rows.append(row)
    return rows


def summary_csv(rows):
    """CSV text: a header, then one row per host; a missing value is an empty field."""
    out = io.StringIO()
    writer = csv.writer(out, lineterminator="\n")
    writer.writerow(COLUMNS)
    for row in rows:
        writer.writerow(["" if row.get(c) is None else row.get(c) for c in COLUMNS])
    return out.getvalue()


def summary_table(rows):
    """Lines of a table for the play's output: one per host, the failure's step and reason
    (or, in check mode, what would be done) last, since they are the long part."""
    line = "%-20s %-11s %-36s %11s %-8s %7s  %s"
    lines = [line % ("host", "outcome", "archive", "bytes", "verified", "seconds", "note")]
    for row in rows:
        if row.get("plan"):
            note = "would " + row["plan"]
        elif row.get("step"):
            note = "at '%s': %s" % (row["step"], row.get("reason") or "")
        else:
            note = row.get("reason") or ""
        values = [row.get(c) for c in ("host", "outcome", "archive", "size", "sha256_verified", "seconds")]
        lines.append(line % (tuple("" if v is None else v for v in values) + (note,)))
    return lines


class FilterModule:
    def filters(self):
        return {"summary_rows": summary_rows, "summary_csv": summary_csv, "summary_table": summary_table}
