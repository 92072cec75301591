#!/bin/sh
# order.sh LINKER ORDER CALLS OBJECT...: brings the order of the calls into the form of the linker
set -e
linker=$1 order=$2 calls=$3
shift 3
printf '%s\n' "$@" >"$order.objects"
ordwell-import --quiet --format=csv --weighed="$order.csv" --objects="@$order.objects" "$calls"
ordwell -o "$order.cmd" "$order.csv"
ordwell-export --quiet --linker="$linker" --objects="@$order.objects" -o "$order" "$order.cmd"
