#!/bin/sh
# Makes certificates by the openssl tool: NAME.pem has a certificate and its plain key, and those above it where it has some.
# Usage: make_certificates.sh FOLDER
set -eu
cd "$1"
exec >make.log 2>&1
cat >ca.conf <<'CONF'
[ca]
default_ca = here
[here]
database = index.txt
serial = serial
new_certs_dir = .
default_md = sha256
policy = any
unique_subject = no
copy_extensions = copy
[any]
commonName = supplied
CONF
: >index.txt
echo 1000 >serial

# authority NAME: a root of its own.
authority() {
  openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -keyout "$1.key" -out "$1.crt" -days 30 \
    -subj "/CN=korvex test $1" -addext basicConstraints=critical,CA:TRUE
}
# issue NAME ISSUER BEGIN END EXTENSION...
issue() {
  name=$1 issuer=$2 begin=$3 end=$4
  shift 4
  # shellcheck disable=SC2046 # no extension has a blank
  set -- $(printf -- '-addext\n%s\n' "$@")
  openssl req -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -keyout "$name.key" -out "$name.csr" -subj "/CN=$name" "$@"
  openssl ca -batch -config ca.conf -cert "$issuer.crt" -keyfile "$issuer.key" -in "$name.csr" -out "$name.crt" -notext \
    -startdate "$begin" -enddate "$end"
  cat "$name.crt" "$name.key" >"$name.pem"
}

past=20200101000000Z
soon=20980101000000Z
late=20990101000000Z
authority root
authority other
issue good root $past $late subjectAltName=DNS:nas.test,DNS:*.wild.test,IP:127.0.0.1,IP:fd00::1
issue nas.test root $past $late basicConstraints=CA:FALSE
issue expired root $past 20200201000000Z subjectAltName=DNS:nas.test
issue early root $soon $late subjectAltName=DNS:nas.test
issue client_only root $past $late subjectAltName=DNS:nas.test extendedKeyUsage=clientAuth
issue middle root $past $late basicConstraints=critical,CA:TRUE
issue below middle $past $late subjectAltName=DNS:nas.test
cat below.crt middle.crt below.key >chain.pem
openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -keyout self.key -out self.crt -days 30 \
  -subj /CN=nas.test -addext subjectAltName=DNS:nas.test
cat self.crt self.key >self.pem
openssl ec -in good.key -aes256 -passout pass:secret -out locked.key
cat good.crt locked.key >locked.pem
