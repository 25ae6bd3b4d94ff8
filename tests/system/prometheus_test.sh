#!/bin/bash
# A real Prometheus scrapes the agent over TCP, each second, while a subscriber floods: no scrape fails, and what it has
# seen in the end is what the agent counted. Usage: prometheus_test.sh BIN_DIR [SECONDS [PICTURE_DATA]]: 15 seconds if not
# given; the samples of the run go to that file as JSON. Exit status 77: skipped.
. "$(dirname "$0")/node.sh"
seconds=${2:-15}

for program in prometheus curl python3; do
  command -v "$program" >/dev/null || skip "needs $program"
done

export PPPOEIA_STATUS_LISTEN=127.0.0.1:9411
kvbridged_start
agent_start
line_and_uplink_add
cat >"$work/prometheus.yml" <<'YAML'
global:
  scrape_interval: 1s
scrape_configs:
  - job_name: pppoeia
    static_configs:
      - targets: ["127.0.0.1:9411"]
YAML
start prometheus prometheus --config.file="$work/prometheus.yml" --storage.tsdb.path="$work/data" \
  --web.listen-address=127.0.0.1:9490 --log.level=warn
query() { curl -sf --noproxy '*' -G "http://127.0.0.1:9490/api/v1/query" --data-urlencode "query=$1"; }
value() { query "$1" | python3 -c 'import json,sys; r=json.load(sys.stdin)["data"]["result"]; print(r[0]["value"][1] if r else "none")'; }
wait_for sh -c "curl -sf --noproxy '*' http://127.0.0.1:9490/-/ready" || fail "Prometheus does not start"
for _ in $(seq 100); do [ "$(value up)" = 1 ] && break; sleep 0.2; done

start flood "$bin/padi_flood" sub 20000
sleep "$seconds"
kill -STOP "${pid[flood]}"
sleep 3  # what is on its way, and one more scrape

[ "$(value 'min_over_time(up[1h])')" = 1 ] || fail "a scrape failed: $(query 'up[1h]')"
scrapes=$(value 'count_over_time(up[1h])')
[ "$scrapes" -ge $((seconds * 8 / 10)) ] || fail "only $scrapes scrapes"
counter='pppoeia_bridge_records_total{bridge="br0"}'
counted=$(curl -sf --noproxy '*' http://127.0.0.1:9411/metrics | grep -F "$counter" | cut -d' ' -f2)
[ "$counted" -gt 0 ] || fail "nothing was counted"
[ "$(value "$counter")" = "$counted" ] || fail "Prometheus has $(value "$counter"), the agent $counted"
# What is lost, is lost in front of the agent or behind it: it says so.
echo "passed: $scrapes scrapes of $(value scrape_samples_scraped) samples, the longest $(value 'max_over_time(scrape_duration_seconds[1h])') s," \
  "$counted records, $(value 'pppoeia_bridge_lost_records_total') lost in front of the agent"
if [ -n "${3:-}" ]; then
  end=$(date +%s)
  for expression in "rate($counter[10s])" 'pppoeia_bridge_lines' 'rate(pppoeia_bridge_accepted_packets_total[10s]) > 0' \
    'rate(pppoeia_bridge_dropped_packets_total[10s]) > 0'; do
    curl -sf --noproxy '*' -G http://127.0.0.1:9490/api/v1/query_range --data-urlencode "query=$expression" \
      -d "start=$((end - seconds))" -d "end=$end" -d step=1
    echo
  done >"$3"
fi
no_sanitizer_complains
