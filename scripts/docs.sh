#!/usr/bin/env bash
# Builds the documentation into a static site: prose by mkdocs, the reference by Doxygen. A warning is an error, and so is
# a snippet, an offset or a test that is not that of the sources.
#
# usage: scripts/docs.sh [--check | --snippets]
#   --check     only compares snippets, offsets and names of tests with the sources; needs nothing installed
#   --snippets  takes the snippets over from the sources
set -euo pipefail
. "$(dirname "$0")/lib.sh"

pages() { printf '%s\n' docs/*.md; }

snippets_of() { awk -f scripts/snippets.awk "$1"; }

# A promise names the test that shows it.
tests_exist() {
    local name status=0
    while read -r name; do
        grep -rqE "^TEST(_F|_P)?\(${name%.*}, ${name#*.}\)" tests || {
            echo "docs/survival.md: no test $name"
            status=1
        }
    done < <(grep -oE "\`[A-Z][A-Za-z]+\.[A-Z][A-Za-z0-9]+\`" docs/survival.md | tr -d '`')
    return "$status"
}

check() {
    local page status=0
    while read -r page; do
        diff "$page" <(snippets_of "$page") || status=1
    done < <(pages)
    awk -f scripts/offsets.awk tests/format/layout.txt docs/formats.md || status=1
    tests_exist || status=1
    return "$status"
}

take_snippets() {
    local page fresh
    while read -r page; do
        fresh=$(snippets_of "$page")
        cmp -s "$page" <(echo "$fresh") || echo "$fresh" >"$page"
    done < <(pages)
}

# Pages that stand elsewhere in the tree join the others; links into the tree lead nowhere in the site.
assemble() {
    rm -rf build/docs
    mkdir -p build/docs/pages
    cp docs/*.md docs/*.svg build/docs/pages
    cp CHANGELOG.md build/docs/pages/changes.md
    sed -i -e 's:](docs/:](:g' -e 's:](bench/README.md):](performance.md):g' build/docs/pages/*.md
}

# Among the pages, so that these can lead there.
reference() { quietly doxygen docs/Doxyfile; }

prose() { quietly mkdocs build --strict --quiet; }

case ${1:-} in
    "")
        scripts/install-deps.sh docs
        check || die "pages and sources differ: scripts/docs.sh --snippets takes snippets over"
        assemble
        reference
        prose
        echo "build/docs/site/index.html"
        ;;
    --check) check ;;
    --snippets) take_snippets ;;
    *)
        echo "usage: ${0##*/} [--check | --snippets]" >&2
        exit 2
        ;;
esac
