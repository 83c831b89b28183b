#!/usr/bin/python3
"""What the tool shows of real certificates is what an independent reader finds in them.

bundle.py BUNDLE TOOL
"""
import json
import re
import subprocess
import sys

from cryptography import x509
from cryptography.x509.oid import NameOID

ATTRIBUTES = {
    "country": NameOID.COUNTRY_NAME,
    "state": NameOID.STATE_OR_PROVINCE_NAME,
    "locality": NameOID.LOCALITY_NAME,
    "org": NameOID.ORGANIZATION_NAME,
    "org_unit": NameOID.ORGANIZATIONAL_UNIT_NAME,
    "common_name": NameOID.COMMON_NAME,
}


def time(moment):
    return f"{moment:%b} {moment.day:2} {moment:%H:%M:%S %Y} GMT"


def texts(pem):
    cert = x509.load_pem_x509_certificate(pem)
    found = {"serial_number": str(cert.serial_number), "not_before": time(cert.not_valid_before),
             "not_after": time(cert.not_valid_after)}
    for side, name in ("issuer", cert.issuer), ("subject", cert.subject):
        for field, oid in ATTRIBUTES.items():
            values = name.get_attributes_for_oid(oid)
            found[f"{side}_{field}"] = values[0].value if values else ""
    return found


bundle, tool = sys.argv[1:]
with open(bundle, "rb") as file:
    blocks = re.findall(b"-----BEGIN CERT.*?-----END [^\n]*\n", file.read(), re.S)
shown = json.loads(subprocess.check_output([tool, "show", "--json", bundle]))
differing = [(texts(pem), cert) for pem, cert in zip(blocks, shown) if texts(pem) != cert]
print(f"{len(blocks)} certificates, {len(shown)} shown, differing: {differing}")
sys.exit(len(blocks) < 100 or len(shown) != len(blocks) or differing != [])
