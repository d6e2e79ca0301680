"""Expected text of the backup product's reports, rendered from the same JSON answers that the
fake REST service serves. Written independently of the C++ code, from the report layouts, so
that an end-to-end run compares two renderings of one fixture."""

FAILURE = "    failed to retrieve data - refer to the gatr_errors.log for details\n\n"


def _get(node, path):
    for key in path:
        if isinstance(key, int):
            if not isinstance(node, list) or key >= len(node):
                return None
            node = node[key]
        else:
            if not isinstance(node, dict) or key not in node:
                return None
            node = node[key]
    return node


def text(node, *path, cut=None):
    value = _get(node, path)
    value = value if isinstance(value, str) else ""
    return value[:cut] if cut is not None else value


def integer(node, *path):
    value = _get(node, path)
    return value if isinstance(value, int) and not isinstance(value, bool) else 0


def boolean(node, *path):
    value = _get(node, path)
    return value if isinstance(value, bool) else False


def items(node, *path):
    value = _get(node, path)
    return value if isinstance(value, list) else []


def tick(flag):
    return "X" if flag else " "


# Notifications and SMTP -------------------------------------------------------------------

def notifications(notify, smtp):
    out = "  Notification settings:\n"
    email = boolean(notify, "email_active")
    out += "    [%s]  %s\n" % (tick(email), "Notify using email (SMTP)")
    if email:
        subject = text(notify, "notify_subj")
        out += "         %-30s  %s\n" % ("Send email to:", text(notify, "notify_email"))
        out += "         %-30s  %s\n" % ("Prefix email subject with:", subject)
        out += "         %-30s  %s\n\n" % ("Prefix email body with:", subject)
        codes = set(c for c in items(notify, "email_options") if isinstance(c, int))
        out += "         [%s]  %-20s    [%s]  %s\n" % (tick(2 in codes), "On backup finished",
                                                      tick(100 in codes), "Daily reports")
        out += "         [%s]  %-20s    [%s]  %s\n" % (tick(3 in codes), "On backup failure",
                                                      tick(105 in codes), "Weekly reports")
        out += "              %-20s    [%s]  %s\n" % ("", tick(110 in codes), "Monthly reports")
    out += "\n"
    sms = boolean(notify, "sms_active")
    out += "    [%s]  %s\n" % (tick(sms), "Notify using text messaging (SMS)")
    if sms:
        codes = set(c for c in items(notify, "sms_options") if isinstance(c, int))
        out += "         %-20s  %s\n\n" % ("SMS gateway:", text(notify, "notify_sms"))
        out += "         [%s]  %-20s\n" % (tick(2 in codes), "On backup finished")
        out += "         [%s]  %-20s\n" % (tick(3 in codes), "On backup failure")
    out += "\n"
    if not email:
        return out
    out += "    SMTP settings:\n"
    if smtp is None:
        return out + FAILURE
    out += "      %-20s  %s:%d\n" % ("Hostname:", text(smtp, "address"), integer(smtp, "port"))
    out += "      %-20s  %s\n" % ("Username:", text(smtp, "username"))
    out += "      %-20s  %s\n" % ("From email address:", text(smtp, "from_email"))
    security = "TLS" if boolean(smtp, "tls") else "SSL" if boolean(smtp, "ssl") else "none"
    out += "      %-20s  %s\n\n" % ("Connection security:", security)
    return out


# Destinations -----------------------------------------------------------------------------

def destinations(answer):
    out = "  Destinations:\n"
    out += "    %-20s  %-40s  %-40s  %s\n" % ("Type", "Description", "Destination", "User Name")
    if answer is None:
        return out + FAILURE
    kinds = {0: "Local Volume", 1: "Network Share"}
    for i in range(len(answer)):
        kind = integer(answer, i, "store_type")
        name = text(answer, i, "name", cut=255)
        if text(answer, i, "policy"):
            name = (name + " (Watchpost Policy)")[:255]
        user = text(answer, i, "username", cut=255) if kind == 1 else ""
        out += "    %-20s  %-40s %s%-40s  %s\n" % (
            kinds.get(kind, "unknown"), name, "*" if boolean(answer, i, "is_default") else " ",
            text(answer, i, "path", cut=255), user)
    return out + "\n"


# Jobs -------------------------------------------------------------------------------------

COMPRESSION = {0: "none", 5: "Standard", 6: "Best"}
ENCRYPTION = {0: "none", 2: "RC4 128-bit (fast)", 3: "AES 128-bit (more secure)",
              4: "AES 256-bit (most secure)"}
SCHEME = {0: "all volumes", 1: "Operating System volumes", 2: "data volumes", 3: "custom"}
SCHEDULE = {1: "Full, Manual", 2: "Full", 3: "Mixed", 4: "Continuous"}
INTERVAL = {1: "week", 2: "other week", 3: "third week"}
WEEKDAYS = ["Sunday", "Monday", "Tuesday", "Wednesday", "Thursday", "Friday", "Saturday"]
MONTHS = ["Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"]


def ordinal(n):
    if n in (11, 12, 13):
        return "%dth" % n
    return "%d%s" % (n, {1: "st", 2: "nd", 3: "rd"}.get(n % 10, "th"))


def _coded(fmt_word, fmt_number, label, table, code):
    return fmt_word % (label, table[code]) if code in table else fmt_number % (label, code)


def _lookup(document, uuid):
    for i in range(len(document)):
        if text(document, i, "uuid") == uuid:
            return i
    return None


def _state(job):
    state = integer(job, "info", "current_state")
    next_run = text(job, "next_run", cut=19).replace("T", " ")
    if state in (1, 5):
        return "    %-10s %s\n" % ("", "running" if state == 1 else "paused")
    if state == 0:
        if not next_run:
            return "    %-10s %s, %s %s\n" % ("", "queued", "next run time is", "not scheduled")
        return "    %-10s %s, %s %s %s %.10s\n" % ("", "queued", "next run time is", next_run[11:],
                                                  "on", next_run)
    return "    %-10s %s %d\n" % ("", "State:", state)


def _volume(volumes, job, k):
    prefix = text(job, "volumes", k, "image_prefix", cut=63)
    vol_id = text(job, "volumes", k, "vol_id", cut=255)
    if not vol_id:
        return ""
    entry = _lookup(volumes, vol_id)
    device = mountpoint = filesystem = attributes = ""
    if entry is not None:
        device = text(volumes, entry, "device", cut=4095)
        mountpoint = text(volumes, entry, "mountpoint", cut=4095)
        filesystem = text(volumes, entry, "filesystem", cut=63)
        attributes = "Operating System" if boolean(volumes, entry, "system") else "Data"
        for key, label in (("boot", "Boot"), ("protected", "Protected"),
                           ("readonly", "Read Only"), ("removable", "Removable")):
            if boolean(volumes, entry, key):
                attributes += ", " + label
        attributes = attributes[:255]
    return "          %-18s %-30s  %-16s  %-12s  %s\n" % (
        "", "%s (%s)" % (device, mountpoint), prefix, filesystem, attributes)


def _rule(rule):
    frequency = integer(rule, "frequency")
    mode = integer(rule, "mode")
    out = "          %-18s %s: %s\n" % ("Schedule:", "Full" if mode == 0 else "Incremental",
                                        "Weekly" if frequency == 0 else "Monthly")
    days = [integer(rule, "offsets", "days", d) for d in range(len(items(rule, "offsets", "days")))]
    if len(days) < 1:
        return out + "\n"
    if frequency == 0:
        m = lambda d: tick(d in days)
        for row in range(3):
            out += "            [%s] %-10s  [%s] %-10s\n" % (m(row), WEEKDAYS[row], m(row + 4),
                                                          WEEKDAYS[row + 4])
        out += "            [%s] %-10s\n\n" % (m(3), WEEKDAYS[3])
    else:
        m = lambda d: tick(d in days)
        for row in range(1, 10):
            out += "            [%s] %-4s    [%s] %-4s    [%s] %-4s\n" % (
                m(row), ordinal(row), m(row + 11), ordinal(row + 11), m(row + 22), ordinal(row + 22))
        out += "            [%s] %-4s    [%s] %-4s\n" % (m(10), ordinal(10), m(21), ordinal(21))
        out += "            [%s] %-4s    [%s] %-4s    [%s] %-4s\n\n" % (
            m(11), ordinal(11), m(22), ordinal(22), m(-1), "Last day of the month")
    start = text(rule, "start", cut=31)
    end = text(rule, "end", cut=31)
    if mode == 0:
        out += "            %-16s %.5s\n\n" % ("Start time:", start[1:])
    elif start == "T00:00:00" and end == "T23:59:00":
        out += "            [ ] %-12s %.5s %s %.5s\n" % ("From:", "08:00", "to", "18:00")
        out += "            [X] %-12s\n\n" % "All day"
    else:
        out += "            [X] %-12s %.5s %s %.5s\n" % ("From:", start[1:], "to", end[1:])
        out += "            [ ] %-12s\n\n" % "All day"
    if frequency == 0 and mode == 0:
        interval = integer(rule, "interval")
        if interval in INTERVAL:
            out += "            %-16s %s\n" % ("Repeat every:", INTERVAL[interval])
    elif frequency == 0 and mode == 1:
        minutes = integer(rule, "repeats")
        if minutes < 60:
            out += "            %-16s %d %s\n" % ("Repeat every:", minutes, "minutes")
        elif minutes == 60:
            out += "            %-16s %d %s\n" % ("Repeat every:", 1, "hour")
        else:
            out += "            %-16s %d %s\n" % ("Repeat every:", minutes // 60, "hours")
    elif frequency == 1:
        months = [integer(rule, "offsets", "months", i)
                  for i in range(len(items(rule, "offsets", "months")))]
        m = lambda n: tick(n in months)
        for row in range(3):
            out += "            %-16s [%s] %-4s    [%s] %-4s    [%s] %-4s    [%s] %-4s\n" % (
                "Repeat every:" if row == 0 else "", m(row + 1), MONTHS[row], m(row + 4),
                MONTHS[row + 3], m(row + 7), MONTHS[row + 6], m(row + 10), MONTHS[row + 9])
    return out + "\n"


def _advanced(s):
    out = "      Advanced:\n        Performance:\n"
    out += "          %s %d%%\n\n" % ("Throttling:", integer(s, "io_throttle"))
    out += "          [%s]  %s\n" % (tick(boolean(s, "save_freespace")),
                                     "Save volume free space in images")
    out += "          [%s]  %s\n\n" % (tick(boolean(s, "ignore_read_fail")),
                                       "Ignore read failures during backup")
    out += "        Scripts:\n"
    out += "          %s %d %s\n\n" % ("Abort scripts that do not finish in",
                                       int(integer(s, "start_job_cmd", "timeout") / 60), "minutes")
    scripts = (("start_job_cmd", "Start job script", "\n\n", "\n"),
               ("pre_snap_cmd", "Pre-snapshot script", "\n\n", "\n"),
               ("post_snap_cmd", "Post-snapshot script", "\n", "\n"),
               ("finish_job_cmd", "Finish job script", "\n", "\n\n"))
    for key, label, ticked_end, blank_end in scripts:
        command = text(s, key, "command", cut=4095)
        if not command:
            out += "          [ ]  %s%s" % (label, blank_end)
            continue
        out += "          [X]  %s%s" % (label, ticked_end)
        out += "                %s\n\n" % command
        out += "                [%s]  %s\n\n" % (tick(boolean(s, key, "error_failure")),
                                                 "Fail backup if script is unsuccessful")
    out += "        Images:\n"
    out += "          [%s]  %s\n" % (tick(boolean(s, "save_concurrent")),
                                     "Save volume images concurrently")
    out += "          [%s]  %s\n" % (tick(boolean(s, "auto_exec_missed")),
                                     "Immediately run missed backups on restart")
    out += "          [%s]  %s\n" % (tick(boolean(s, "use_write_cache")),
                                     "Use write cache when saving images")
    out += "          [%s]  %s\n\n" % (tick(boolean(s, "split_image_files")),
                                       "Split image files into smaller files")
    if boolean(s, "split_image_files"):
        out += "                %s %d %s\n\n" % ("Split file size", integer(s, "split_file_size"),
                                                 "MB")
    out += "        Retention:\n"
    if integer(s, "retention") != 0:
        out += "          [ ]  Keep all images\n"
        out += "          [X]  Keep only recent images\n\n"
        out += "               %s %d %s\n\n" % ("Retain", integer(s, "retention_sets"),
                                                "most recent image sets")
        out += "               [%s]  %s\n" % (tick(boolean(s, "keep_all_fulls")),
                                              "Keep all full backups (delete only incrementals)")
        out += "               [%s]  %s\n" % (tick(boolean(s, "delete_before_full")),
                                              "Perform deletions before a full backup")
    else:
        out += "          [X]  Keep all images\n"
        out += "          [ ]  Keep only recent images\n"
    return out


def job(volumes, dests, j):
    s = j.get("settings", {}) if isinstance(j, dict) else {}
    name = text(j, "name", cut=255)
    if text(j, "policy"):
        out = "    %-10s %s (%s)\n" % ("Job:", name, "Watchpost Policy")
    else:
        out = "    %-10s %s\n" % ("Job:", name)
    out += _state(j) + "\n      Settings:\n"
    entry = _lookup(dests, text(j, "destination", cut=255))
    dest_name = text(dests, entry, "name", cut=255) if entry is not None else ""
    dest_path = text(dests, entry, "path", cut=4095) if entry is not None else ""
    out += "        %-20s %s\n" % ("Destination:", dest_name or "n/a")
    out += "        %-20s %s\n\n" % ("Path:", dest_path or "n/a")
    out += _coded("        %-20s %s\n", "        %-20s %d\n", "Compression:", COMPRESSION,
                  integer(s, "compression"))
    out += _coded("        %-20s %s\n", "        %-20s %d\n", "Encryption:", ENCRYPTION,
                  integer(s, "encryption"))
    out += "\n        %-20s %s\n\n" % ("Comment:", text(s, "comment"))
    out += "        Volumes:\n"
    out += _coded("          %-18s %s\n", "          %-18s %d\n", "Scheme:", SCHEME,
                  integer(s, "vol_scheme"))
    for k in range(len(items(j, "volumes"))):
        out += _volume(volumes, j, k)
    out += "\n      Schedule:\n"
    out += _coded("          %-18s %s\n", "          %-18s %d\n", "Type:", SCHEDULE,
                  integer(s, "sch_type"))
    for rule in items(j, "schedule", "rules"):
        out += _rule(rule)
    return out + _advanced(s) + "\n"


def jobs(volumes, dests, backups):
    """Any of the three documents None: the failure line."""
    out = "  Jobs:\n"
    if volumes is None or dests is None or backups is None:
        return out + FAILURE
    if not backups:
        return out + "\n"
    return out + "".join(job(volumes, dests, j) for j in backups)


def configuration(notify, smtp, volumes, dests, backups):
    """The whole "Configuration:" block as the section prints it."""
    return ("%-20s\n" % "Configuration:" + notifications(notify, smtp)
            + jobs(volumes, dests, backups) + destinations(dests))


def configuration_of(answers, failed=(), smtp_unparsable=False):
    """The "Configuration:" block for a dict of parsed answers by endpoint name, when the
    endpoints named in `failed` give no usable answer (a failed transfer or an unparsable
    one; "version" failing fails every report). With smtp_unparsable the mail server answer
    arrives but does not parse, which only shows when e-mail is on."""
    failed = set(failed)
    if "version" in failed:
        failed |= {"notify", "smtp", "system", "volume", "destination", "backup"}
    out = "%-20s\n" % "Configuration:"
    if "notify" in failed or "smtp" in failed:
        out += "  Notification settings:\n" + FAILURE
    else:
        out += notifications(answers["notify"], None if smtp_unparsable else answers["smtp"])
    if failed & {"system", "volume", "destination", "backup"}:
        out += "  Jobs:\n" + FAILURE
    else:
        out += jobs(answers["volume"], answers["destination"], answers["backup"])
    out += destinations(None if "destination" in failed else answers["destination"])
    return out
