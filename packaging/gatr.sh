#!/bin/sh
# Installed as /usr/sbin/gatr. The program finds etc/, var/ and locale/ beside itself, so it
# runs from its own folder; exec hands over every argument untouched and keeps the exit status.
exec /opt/Brimwell/gatr/gatr "$@"
