#!/usr/bin/env bash
# Debian's form of one version's changes, on standard output:
#   changelog.sh CHANGELOG.md VERSION MAINTAINER
set -euo pipefail
echo "kestrel ($2) unstable; urgency=low"
echo
sed -n "/^## $2\$/,\${/^## $2\$/d;/^## /q;s/^- //p}" "$1" | while read -r change; do
  fold -s -w 72 <<< "$change" | sed '1s/^/  * /;2,$s/^/    /;s/ *$//'
done
echo
echo " -- $3  $(date -R -u -r "$1")"
