#!/usr/bin/env bash
# Copyright 2026 The libcorvane Authors
# SPDX-License-Identifier: Apache-2.0
#
# Changes the library one line at a time and lists the changes that no test notices; tools/mutate.py
# says how. usage: tools/mutate.sh [--sample N] [--seed S] [--jobs J] [--list] [FILE_OR_FOLDER...]
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
tools/install-packages.sh build mutate
exec python3 tools/mutate.py "$@"
