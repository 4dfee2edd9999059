#!/usr/bin/env bash
# Checks the Debian package as a user would meet it: builds it (scripts/package.sh), checks
# that apt can satisfy its dependencies, unpacks it into a scratch root, and runs the
# unpacked dbimport-cli: its version, then a small import of a generated database.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"

build=${DBIMPORT_PACKAGE_DIR:-build-package}
bash scripts/package.sh >/dev/null
deb=$(ls -1t "$build"/dbimport_*_amd64.deb | head -n 1)
version=$(sed -n 's/^project(dbimport VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)

fail() { echo "package check: $*" >&2; exit 1; }

[ "$(basename "$deb")" = "dbimport_${version}_amd64.deb" ] || fail "unexpected name $deb"
depends=$(dpkg-deb -f "$deb" Depends)
for needed in libqt6sql6-sqlite libqt6sql6-odbc libodbc2 libqt6widgets6 libsqlite3-0; do
  [[ ", $depends," == *", $needed"[\ ,]* ]] || fail "Depends lacks $needed: $depends"
done
apt-get install --simulate --no-install-recommends "$(realpath "$deb")" >/dev/null ||
  fail "apt cannot satisfy the dependencies of $deb"

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
dpkg-deb -x "$deb" "$scratch/root"
bin="$scratch/root/usr/bin"
for f in usr/bin/dbimport usr/share/applications/dbimport.desktop \
         usr/share/icons/hicolor/scalable/apps/dbimport.svg \
         usr/share/icons/hicolor/48x48/apps/dbimport.png usr/share/man/man1/dbimport-cli.1.gz; do
  [ -e "$scratch/root/$f" ] || fail "$f is not in the package"
done

[ "$("$bin/dbimport-cli" --version)" = "dbimport-cli $version" ] || fail "wrong --version"

# A small import with the unpacked programs: a generated source, a Group, and a settings
# file whose saved choices map the e-mail address and the name.
work="$scratch/work"
mkdir -p "$work/data"
"$bin/dbimport-gensource" "$work/contacts.db" 500 --seed 3 >/dev/null
"$bin/dbimport-cli" --data-folder "$work/data" --create-group Customers >/dev/null
# Connection strings are stored with every character one code higher.
scrambled=$(printf '%s' "Provider=SQLite;Data Source=$work/contacts.db" | perl -pe 's/(.)/chr(ord($1)+1)/ge')
printf '%s\r\n' "[DSN]" "DSNName1=Contacts" "DSNString1=$scrambled" \
  "[DSN1]" "FilterMethod=0" "SelectedTable=Contacts" "VTGroup=Customers" \
  "[FieldMap1]" "VTField1=EMailAddress" "DBField1=Email" "VTField2=FullNameMacro" \
  "DBField2=Full Name" >"$work/dbimport.ini"
summary=$("$bin/dbimport-cli" --data-folder "$work/data" --ini "$work/dbimport.ini" \
  --connection Contacts --quiet --json)
[[ "$summary" == *'"processed":500'* && "$summary" == *'"exitStatus":0'* ]] ||
  fail "the import did not run: $summary"
echo "package check: $(basename "$deb") ($(du -k "$deb" | cut -f1) KiB) installs and imports: $summary"
