# Sourced by the scripts: with -h or --help, prints the comment at the head of the script and ends.
case "${1:-}" in
-h | --help)
    sed -n '2,/^[^#]/s/^# \{0,1\}//p' "$0"
    exit 0
    ;;
esac
