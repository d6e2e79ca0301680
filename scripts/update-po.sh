#!/bin/bash
# Refreshes the message catalogues from the sources: extracts the template, merges it into every
# translated locale/*.po, and rebuilds the English catalogue, which translates each text to itself.
set -eu
cd "$(dirname "$0")/.."
pot=$(mktemp --suffix=.pot)
trap 'rm -f "$pot"' EXIT
xgettext --language=C++ --from-code=UTF-8 --keyword=_ --keyword=N_ --omit-header \
    --package-name=gatr --package-version=2.3.3 -o "$pot" $(find src -name "*.cpp" -o -name "*.h" | sort)
for po in locale/*.po; do
    [ "$po" = locale/en.po ] && continue
    msgmerge --quiet --update --backup=none --no-fuzzy-matching "$po" "$pot"
done
{
    printf '# English message catalogue for gatr.\n'
    printf 'msgid ""\nmsgstr ""\n'
    printf '"Project-Id-Version: gatr 2.3.3\\n"\n"Language: en\\n"\n'
    printf '"MIME-Version: 1.0\\n"\n"Content-Type: text/plain; charset=UTF-8\\n"\n'
    printf '"Content-Transfer-Encoding: 8bit\\n"\n\n'
    msgen --no-wrap --no-location "$pot"
} > locale/en.po
msgfmt --check-format -o /dev/null locale/en.po
