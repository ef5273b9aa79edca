#!/bin/sh
# Stands in for the program that drives an output line of the instrument, as the key SET_RESET_EXEC
# names it. Gets the pin and its value, as in "162 0"; writes them to the file RESET_LINE_LOG. Where
# RESET_LINE_PID is the process of an emulated instrument, the line lets it start anew when it rises.
printf 'pin %s value %s\n' "$1" "$2" >>"${RESET_LINE_LOG:-reset-line.log}"
if [ "$2" = 1 ] && [ -n "${RESET_LINE_PID:-}" ]; then
    kill -HUP "$RESET_LINE_PID"
    sleep 0.2
fi
