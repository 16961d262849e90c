#!/usr/bin/env bash
# The changes of one version in Debian's format, on standard output:
#   changelog.sh CHANGELOG.md VERSION MAINTAINER
set -euo pipefail
echo "kestrel ($2) unstable; urgency=low"
echo
sed -n "/^## $2\$/,\${/^## $2\$/d;/^## /q;s/^- //p}" "$1" | while read -r change; do
  fold -s -w 72 <<< "$change" | sed '1s/^/  * /;2,$s/^/    /;s/ *$//'
done
echo
echo " -- $3  $(date -R -u -r "$1")"
