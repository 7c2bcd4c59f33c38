# A new firmware and a configuration file come over the link, over a good one and over a bad one.

make_image() {
  head -c "$3" /dev/urandom >"$work/payload" && mktrx make --version "$2" -o "$1" "$work/payload" &&
    mktrx check "$1"
}

flash_holds() {
  cmp -n "$(stat -c %s "$1")" "$1" "$router_dir/dev/mtd/0"
}

firmware_is() {
  [ "$(rcmctl --json devices | jq -r --arg serial "$serial" \
    '.[] | select(.serial == $serial) | .firmware_version')" = "$1" ] && device_value_is version_firmware "$1"
}

# upgrade_and_import VERSION BYTES HOSTNAME: the whole of both transfers
upgrade_and_import() {
  local image=$work/firmware-$1.trx before
  step "an image of version $1 is made and checked" make_image "$image" "$1" "$2"
  before=$(registrations)
  step "the server has the router fetch, check and flash it" rcmctl upgrade "$serial" "$image"
  step "the router restarts and enrols" within 240 enrolled_again_after "$before"
  step "it runs the version that the image carries" within 10 firmware_is "$1"
  step "the flash holds the image byte for byte" flash_holds "$image"
  printf 'hostname=%s\nlan_dhcp_lease=4242\n' "$3" >"$work/settings.txt"
  before=$(registrations)
  step "a configuration file is fetched and imported" rcmctl import "$serial" "$work/settings.txt"
  step "the router restarts and enrols once more" within 240 enrolled_again_after "$before"
  step "with the imported settings" device_value_is hostname "$3"
  step "which the server hears of" within 60 server_value_is hostname "$3"
}

bad_file_is_refused() {
  : >"$work/empty"
  ! rcmctl upgrade "$serial" "$work/empty" && ! rcmctl import "$serial" "$work/not-there"
}

upgrade_and_import 2.0.0 300000 branch-office
step "an empty or missing file is refused at the server" bad_file_is_refused

# On a bad link the router lives in real time: at the story's pace it would spend all of it waiting
# for acknowledgements of its reports, and a command that arrives meanwhile is lost.
stop_router
stop_server
start_server --drop 20 --duplicate 20 --reorder 20 --seed 11
story_scale=$scale scale=1
before=$(registrations)
start_router
step "the router is back, on a link with 20% loss, duplication and reordering" \
  within 240 enrolled_again_after "$before"
upgrade_and_import 3.0.0 40000 head-office
stop_router
stop_server
start_server
scale=$story_scale
start_router
