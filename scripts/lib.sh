# Shared by the scripts: quiet steps whose log is shown only when they fail.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$root"
mkdir -p build/logs

# step NAME COMMAND…: runs COMMAND with its output in build/logs/NAME.log.
step() {
  local name=$1; shift
  local started=$SECONDS
  if "$@" > "build/logs/$name.log" 2>&1; then
    echo "-- $name: done in $((SECONDS - started)) s"
  else
    local status=$?
    echo "-- $name: FAILED (status $status); the end of build/logs/$name.log:"
    tail -n 80 "build/logs/$name.log"
    exit "$status"
  fi
}

# configure_and_build PRESET [TARGET…]
configure_and_build() {
  local preset=$1; shift
  step "configure-$preset" cmake --preset "$preset"
  if [[ $# -gt 0 ]]; then
    step "build-$preset" cmake --build --preset "$preset" --target "$@"
  else
    step "build-$preset" cmake --build --preset "$preset"
  fi
}
