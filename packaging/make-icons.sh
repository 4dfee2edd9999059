#!/usr/bin/env bash
# Renders the program's PNG icons from icons/dbimport.svg (librsvg2-bin's rsvg-convert).
# The PNGs are kept in the repository, so building needs no SVG renderer; run this after
# changing the SVG.
set -euo pipefail
cd "$(dirname "$0")/icons"
for size in 16 24 32 48 64 128 256; do
  rsvg-convert -w "$size" -h "$size" dbimport.svg -o "dbimport-$size.png"
done
