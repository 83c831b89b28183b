#!/usr/bin/python3
# What the tool shows of real certificates is what an independent reader finds in them:
# bundle.py BUNDLE TOOL

import json
import pathlib
import re
import subprocess
import sys

from cryptography import x509
from cryptography.x509.oid import NameOID

ATTRIBUTES = {
    "country": NameOID.COUNTRY_NAME, "state": NameOID.STATE_OR_PROVINCE_NAME,
    "locality": NameOID.LOCALITY_NAME, "org": NameOID.ORGANIZATION_NAME,
    "org_unit": NameOID.ORGANIZATIONAL_UNIT_NAME, "common_name": NameOID.COMMON_NAME,
}


def time(moment):
    return f"{moment:%b} {moment.day:2} {moment:%H:%M:%S %Y} GMT"


def texts(pem):
    cert = x509.load_pem_x509_certificate(pem)
    # Later releases have times that know their zone, and no others.
    start, end = (getattr(cert, f"not_valid_{which}_utc", None) or
                  getattr(cert, f"not_valid_{which}") for which in ("before", "after"))
    found = {"serial_number": str(cert.serial_number), "not_before": time(start),
             "not_after": time(end)}
    for side, name in ("issuer", cert.issuer), ("subject", cert.subject):
        for field, oid in ATTRIBUTES.items():
            values = name.get_attributes_for_oid(oid)
            found[f"{side}_{field}"] = values[0].value if values else ""
    return found


bundle, tool = sys.argv[1:]
blocks = re.findall(b"-----BEGIN CERT.*?-----END [^\n]*\n", pathlib.Path(bundle).read_bytes(), re.S)
shown = json.loads(subprocess.check_output([tool, "show", "--json", bundle]))[0]["certificates"]
differing = [(texts(pem), cert) for pem, cert in zip(blocks, shown) if texts(pem) != cert]
print(f"{len(blocks)} certificates, {len(shown)} shown, differing: {differing}")
sys.exit(len(blocks) < 100 or len(shown) != len(blocks) or differing != [])
