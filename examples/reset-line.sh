#!/bin/sh
# Stands in for the program that drives an output line of the instrument, as the key SET_RESET_EXEC
# names it. Gets the pin and its value, as in "162 0"; writes them to the file RESET_LINE_LOG.
printf 'pin %s value %s\n' "$1" "$2" >>"${RESET_LINE_LOG:-reset-line.log}"
