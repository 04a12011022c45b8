#!/usr/bin/env bash
# usage: scripts/check.sh [BASE]
# Checks a change before it is committed: builds the preset `host` with warnings as errors, runs its
# tests, and checks the style of what differs from the commit BASE (default: where this branch left
# origin/main), the working tree and new files included. Takes two minutes once all is built;
# .ci/run checks everything.
set -euo pipefail
# shellcheck source=scripts/setup.sh
source "$(dirname "${BASH_SOURCE[0]}")/setup.sh"

[[ $# -le 1 && ${1-} != -* ]] || usage_error
base=${1-$(git merge-base HEAD origin/main 2>/dev/null || git rev-parse HEAD)}
changed=$(git diff --name-only "$base" && git ls-files --others --exclude-standard)
mapfile -t files <<<"$changed"

scripts/test.sh -W host
[[ -z $changed ]] || scripts/check-style.sh "${files[@]}"
say "passed in $SECONDS s"
