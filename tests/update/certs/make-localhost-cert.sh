#!/bin/sh
# Makes the self-signed certificate of the update tests' local HTTPS server. Only those tests
# trust it (they add it to their own TLS configuration); the key protects nothing. Valid from 2000
# to 2125, so a machine whose clock is off still accepts it.
# Usage: tests/update/certs/make-localhost-cert.sh   (rewrites localhost.crt and localhost.key)
set -eu
cd "$(dirname "$0")"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

touch "$work/index.txt"
echo 01 > "$work/serial"
cat > "$work/ca.cnf" <<CONF
[ ca ]
default_ca = local
[ local ]
database = $work/index.txt
new_certs_dir = $work
serial = $work/serial
default_md = sha256
policy = any
unique_subject = no
x509_extensions = server
[ any ]
commonName = supplied
[ server ]
basicConstraints = critical, CA:TRUE
keyUsage = critical, digitalSignature, keyEncipherment, keyCertSign
extendedKeyUsage = serverAuth
subjectAltName = DNS:localhost, IP:127.0.0.1
CONF

openssl req -new -newkey rsa:2048 -nodes -subj "/CN=localhost" \
    -keyout localhost.key -out "$work/request.csr"
openssl ca -batch -notext -config "$work/ca.cnf" -selfsign -keyfile localhost.key \
    -startdate 20000101000000Z -enddate 21250101000000Z \
    -in "$work/request.csr" -out localhost.crt
