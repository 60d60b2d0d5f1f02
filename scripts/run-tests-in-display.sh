#!/usr/bin/env bash
# Runs inside xvfb-run: starts Wine's services detached, runs ctest, stops them.
set -uo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/wine-env.sh"
start_wine_services
ctest --test-dir "$here/build" --output-on-failure --timeout 300 -j "${GRA_TEST_JOBS:-2}" "$@"
status=$?
stop_wine_services
exit $status
