#!/bin/sh
# Turns the comment at the head of a header into one that the reference shows, and leaves out what
# only the compiler needs. The header itself stays plain.
awk '
  NR == 1 { print "/// @file" }
  /^\/\/ SPDX-License-Identifier:/ { next }
  !past && /^\/\// { sub(/^\/\//, "///"); print; next }
  { past = 1 }
  /^template <>$/ { left_out = 1 }
  left_out { if (/^};$/) left_out = 0; print ""; next }
  { print }
' "$1"
