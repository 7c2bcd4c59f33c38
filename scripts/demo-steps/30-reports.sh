# Log lines, an hour of traffic and positions reach the server with the router's own times.

# The router's hour is a minute long, so its time now is what it has told: boot plus 60 times as much.
line_time_is_plausible() {
  local latest
  latest=$(rcmctl --json logs "$serial" --limit 1 | jq -s -r '.[-1].time')
  [ "$latest" -ge "$story_began" ] && [ "$latest" -le $(($(date +%s) + scale * ($(date +%s) - story_began + 5))) ]
}

log_holds() {
  grep -qF "$1" < <(rcmctl logs "$serial" --limit 1000)
}

log_lines_come_once() {
  local twice
  twice=$(rcmctl --json logs "$serial" --limit 1000 | jq -r '"\(.time) \(.message)"' | sort | uniq -d)
  [ -z "$twice" ] || { echo "twice: $twice"; return 1; }
}

hours_reported() {
  [ "$(rcmctl --json traffic "$serial" | jq '.hours | length')" -ge 1 ]
}

# What the hour's samples add up to is what the hour's total says.
hour_adds_up() {
  rcmctl --json traffic "$serial" | jq -e '
    (.hours[-1].tx == ([.samples[].tx] | add)) and (.hours[-1].rx == ([.samples[].rx] | add))'
}

# A busy machine makes one late now and then, by a second of its own, which is a minute of the router's.
samples_are_a_minute_apart() {
  rcmctl --json traffic "$serial" | jq -e '
    [.samples[].time] as $t | [range(1; $t | length) | $t[.] - $t[. - 1]] | sort |
    .[0] >= 59 and .[length / 2 | floor] <= 65'
}

positions_move() {
  [ "$(rcmctl --json positions "$serial" --limit 20 | jq '[.[] | .latitude + " " + .longitude] | unique | length')" -ge 5 ]
}

gpx_is_written() {
  rcmctl positions "$serial" --gpx "$work/track.gpx" && grep -q "<trkpt lat=" "$work/track.gpx"
}

step "log lines reach the server" within 30 log_holds "pppd["
step "those of every source" within 30 eval 'log_holds "modem[" && log_holds "pluto[" && log_holds "udhcpd:" && log_holds "dnsmasq["'
step "with the router's own times" line_time_is_plausible
step "each line once" log_lines_come_once
on_device set rcm_log_dnsmasq=0
step "positions arrive and move" within 30 positions_move
step "as a GPX track too" gpx_is_written
step "an hour of traffic is reported" within 90 hours_reported
step "its minutes add up to its total" hour_adds_up
step "and lie a minute apart" samples_are_a_minute_apart
