#!/usr/bin/env bash
# Builds the program and starts it the way the host product does, on a ready-made demo:
#   demo/data/contacts.db       3,000 made-up contacts (a few invalid, duplicate and
#                               case-variant e-mail addresses among them)
#   demo/data/Demo Customers.gdb an empty Group to import into
#   build/bin/dbimport.ini      the connection "Demo contacts" with its saved choices
#                               (table Contacts, the field mapping, the Group), added only
#                               when the file does not hold it yet
# With a display the wizard opens; press Next through the steps and Start. Without one the
# same import runs through dbimport-cli, which prints the totals and the log's path.
# DBIMPORT_BUILD_DIR picks another build folder than build/.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"

build=${DBIMPORT_BUILD_DIR:-build}

bash scripts/setup.sh
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DDBIMPORT_WERROR=ON >/dev/null
cmake --build "$build" -j "$(nproc)" --target dbimport dbimport-cli dbimport-gensource

bin="$(cd "$build" && pwd)/bin"
data="$root/demo/data"
source_db="$data/contacts.db"
group="Demo Customers"
connection="Demo contacts"
ini="$bin/dbimport.ini"
mkdir -p "$data"

if [ ! -f "$source_db" ]; then
  "$bin/dbimport-gensource" "$source_db" 3000
fi
if [ ! -f "$data/$group.gdb" ]; then
  "$bin/dbimport-cli" --data-folder "$data" --create-group "$group"
fi

# --- The settings file, written as the program writes it: Windows-1252, CR LF line ends,
# --- section and key names compared without regard to case, new keys at their section's end.

# ini_set FILE SECTION KEY VALUE
ini_set() {
  local file=$1 tmp
  tmp=$(mktemp "$file.XXXXXX")
  [ -f "$file" ] || : >"$file"
  # Values come through the environment: awk -v would interpret their backslashes.
  INI_SECTION=$2 INI_KEY=$3 INI_VALUE=$4 LC_ALL=C awk '
    BEGIN {
      want = tolower(ENVIRON["INI_SECTION"]); key = tolower(ENVIRON["INI_KEY"])
      line = ENVIRON["INI_KEY"] "=" ENVIRON["INI_VALUE"]
      n = 0; in_section = 0; found_section = 0; done = 0; last = 0
    }
    {
      sub(/\r$/, "")
      lines[++n] = $0
      text = $0; gsub(/^[ \t]+|[ \t]+$/, "", text)
      if (text ~ /^\[.*\]$/) {
        name = tolower(substr(text, 2, length(text) - 2))
        in_section = (name == want)
        if (in_section) { found_section = 1; last = n }
        next
      }
      if (in_section) {
        if (text != "") last = n
        split(text, parts, "=")
        k = parts[1]; gsub(/[ \t]+$/, "", k)
        if (!done && index(text, "=") > 0 && tolower(k) == key) { lines[n] = line; done = 1 }
      }
    }
    END {
      for (i = 1; i <= n; i++) {
        printf "%s\r\n", lines[i]
        if (!done && found_section && i == last) { printf "%s\r\n", line; done = 1 }
      }
      if (!done) printf "[%s]\r\n%s\r\n", ENVIRON["INI_SECTION"], line
    }' "$file" >"$tmp"
  chmod 600 "$tmp"
  mv "$tmp" "$file"
}

# ini_get FILE SECTION KEY: the value, or nothing.
ini_get() {
  [ -f "$1" ] || return 0
  INI_SECTION=$2 INI_KEY=$3 LC_ALL=C awk '
    BEGIN { want = tolower(ENVIRON["INI_SECTION"]); key = tolower(ENVIRON["INI_KEY"]) }
    {
      sub(/\r$/, ""); text = $0; gsub(/^[ \t]+|[ \t]+$/, "", text)
      if (text ~ /^\[.*\]$/) { in_section = (tolower(substr(text, 2, length(text) - 2)) == want); next }
      p = index(text, "=")
      if (in_section && p > 0) {
        k = substr(text, 1, p - 1); gsub(/[ \t]+$/, "", k)
        if (tolower(k) == key) { print substr(text, p + 1); exit }
      }
    }' "$1"
}

# The stored form of a connection string: each Windows-1252 character one code higher.
scramble() {
  local out="" b
  for b in $(printf '%s' "$1" | iconv -f UTF-8 -t CP1252 | od -An -v -tu1); do
    if ((b == 255)); then
      return 1
    fi
    out+=$(printf "\\$(printf '%03o' $((b + 1)))")
  done
  printf '%s' "$out"
}

slot=""
free_slot=""
for n in $(seq 1 50); do
  name=$(ini_get "$ini" DSN "DSNName$n")
  if [ "$name" = "$connection" ]; then
    slot=$n
    break
  fi
  if [ -z "$name" ] && [ -z "$free_slot" ]; then
    free_slot=$n
  fi
done

if [ -z "$slot" ]; then
  if [ -z "$free_slot" ]; then
    echo "All 50 connection slots of $ini are in use; remove one to run the demo." >&2
    exit 1
  fi
  n=$free_slot
  stored=$(scramble "Provider=SQLite;Data Source=$source_db") || {
    echo "The demo's path cannot be kept in the settings file: $source_db" >&2
    exit 1
  }
  ini_set "$ini" DSN "DSNName$n" "$connection"
  ini_set "$ini" DSN "DSNString$n" "$stored"
  ini_set "$ini" "DSN$n" FilterMethod 0
  ini_set "$ini" "DSN$n" SelectedTable Contacts
  ini_set "$ini" "DSN$n" AdvancedSQLString ""
  ini_set "$ini" "DSN$n" VTGroup "$group"
  ini_set "$ini" "DSN$n" ReplaceExisting False
  # host field = source column, in the order the wizard stores its mapping
  mapping=(
    "EMailAddress=Email" "Title=" "FirstName=" "Initial=" "LastName="
    "FullNameMacro=Full Name" "Address1=Address1" "Address2=Address2" "City=City"
    "State=State" "Zip=Zip" "Country=Country" "Company=Company" "JobTitle=JobTitle"
    "Web=Web" "Telephone=Telephone" "Fax=Fax" "Field1=Joined" "Field2=" "Field3=" "Field4="
  )
  j=0
  for pair in "${mapping[@]}"; do
    j=$((j + 1))
    ini_set "$ini" "FieldMap$n" "VTField$j" "${pair%%=*}"
    ini_set "$ini" "FieldMap$n" "DBField$j" "${pair#*=}"
  done
  echo "Added the connection \"$connection\" to $ini"
fi

if [ -n "${DISPLAY:-}" ] || [ -n "${WAYLAND_DISPLAY:-}" ]; then
  # The host passes its data folder in Windows form after a "G": Z:\path\to\demo\data\.
  host_folder="Z:${data//\//\\}\\"
  echo "Starting: dbimport \"G$host_folder\""
  exec "$bin/dbimport" "G$host_folder"
fi

echo "No display (DISPLAY and WAYLAND_DISPLAY are empty): the wizard cannot open."
echo "Running the same import with dbimport-cli instead."
exec "$bin/dbimport-cli" --data-folder "$data" --connection "$connection" --ini "$ini"
