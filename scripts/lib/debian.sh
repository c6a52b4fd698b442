# shellcheck shell=bash
# Debian archives and releases; sourced, not run.

# Prints a line "deb [OPTIONS] URI SUITE main" for each archive that apt is configured to use. Lists only the main
# component of the running release, so that no other vendor's archive is contacted. Reads one-line entries (*.list) and
# stanzas (*.sources).
debian_sources() {
  local apt_list="" apt_parts="" codename list
  codename=$(. /etc/os-release && printf '%s' "$VERSION_CODENAME")
  eval "$(apt-config shell apt_list Dir::Etc::sourcelist/f apt_parts Dir::Etc::sourceparts/d)"
  local wanted="^($codename|stable|oldstable)(-updates|-security|/updates)?\$"
  for list in "$apt_list" "${apt_parts%/}"/*.list; do
    if [ -f "$list" ]; then awk -v wanted="$wanted" "$debian_list_program" "$list"; fi
  done | sort -u
  for list in "${apt_parts%/}"/*.sources; do
    if [ -f "$list" ]; then awk -v wanted="$wanted" "$debian_stanza_program" "$list"; fi
  done | sort -u
}

# shellcheck disable=SC2016  # the $ are awk's
debian_list_program='
  /^[ \t]*deb[ \t]/ {
    sub(/^[ \t]*deb[ \t]+/, "")
    sub(/[ \t]#.*/, "")
    options = ""
    if (match($0, /^\[[^]]*\][ \t]*/)) {
      options = substr($0, 1, RLENGTH)
      $0 = substr($0, RLENGTH + 1)
    }
    for (i = 3; i <= NF; ++i)
      if ($i == "main" && $1 !~ /^cdrom:/ && $1 ~ /debian/ && $2 ~ wanted)
        print "deb " options $1, $2, "main"
  }'

# shellcheck disable=SC2016
debian_stanza_program='
  function is_off(value) { return tolower(value) ~ /^(no|false|without|off|disable|0)/ }
  function flush_stanza(   uris, suites, i, j, options) {
    if ((" " fields["types"] " ") ~ / deb / && (" " fields["components"] " ") ~ / main / && !is_off(fields["enabled"])) {
      # A one-line entry cannot contain a key inside the stanza; apt then uses the keys that it trusts anyway.
      if (fields["signed-by"] ~ /^\/[^ ]*$/)
        options = " signed-by=" fields["signed-by"]
      if (fields["trusted"] != "")
        options = options " trusted=" fields["trusted"]
      if (options != "")
        options = "[" substr(options, 2) "] "
      split(fields["uris"], uris, " ")
      split(fields["suites"], suites, " ")
      for (i in uris)
        for (j in suites)
          if (uris[i] ~ /debian/ && suites[j] ~ wanted)
            print "deb " options uris[i], suites[j], "main"
    }
    delete fields
  }
  /^#/ { next }
  /^[ \t]*$/ { flush_stanza(); next }
  {
    value = $0
    if ($0 ~ /^[^ \t]/) {
      field = tolower($0)
      sub(/[ \t]*:.*/, "", field)
      sub(/^[^:]*:/, "", value)
    }
    gsub(/^[ \t]+|[ \t]+$/, "", value)
    gsub(/[ \t]+/, " ", value)
    fields[field] = fields[field] == "" ? value : fields[field] " " value
  }
  END { flush_stanza() }'

# Prints why scripts/test_in_debian.sh cannot run on this machine; prints nothing if it can.
debian_obstacle() {
  if ! (. /etc/os-release && [ "$ID" = debian ]) 2>/dev/null; then
    echo "this is not Debian"
  elif ! command -v mmdebstrap >/dev/null; then
    echo "mmdebstrap is not installed; scripts/setup.sh --debian installs it"
  elif [ "$(id -u)" -ne 0 ]; then
    echo "it needs root"
  elif ! unshare --mount --pid --fork true 2>/dev/null; then
    echo "this machine does not allow new mount and process namespaces"
  fi
}

# The release to test besides this machine's own.
other_debian_release() {
  if (. /etc/os-release && [ "$VERSION_ID" = 13 ]) 2>/dev/null; then echo 12; else echo 13; fi
}
