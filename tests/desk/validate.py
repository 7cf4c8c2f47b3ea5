# Holds the JSON formats against their schemas and the page against an HTML5 parser that forgives
# nothing. usage: validate.py SCHEMAS FOLDER SARIF_SCHEMA...
import base64
import glob
import hashlib
import json
import os
import re
import sys

import html5lib
import jsonschema

failures = 0


def fail(file, message):
    global failures
    failures += 1
    print(f"FAILED: {os.path.basename(file)}: {message}")


def read(file):
    with open(file, encoding="utf-8", errors="strict", newline="") as text:
        return text.read()


def check_json(schema_file, files):
    schema = json.loads(read(schema_file))
    kind = jsonschema.validators.validator_for(schema)
    kind.check_schema(schema)
    validator = kind(schema)
    for file in files:
        for error in validator.iter_errors(json.loads(read(file))):
            fail(file, f"{'/'.join(map(str, error.absolute_path))}: {error.message[:300]}")


# What a browser takes from outside, or runs.
REFERENCES = {"src", "srcset", "data", "action", "formaction", "poster", "background", "style"}


def check_element(file, element, identifiers):
    name = element.tag.rpartition("}")[2] if isinstance(element.tag, str) else ""
    if name in ("link", "iframe", "img", "object", "embed", "base", "form"):
        fail(file, f"the page has an element {name}")
    for attribute, value in element.attrib.items():
        if attribute in REFERENCES or attribute.startswith("on"):
            fail(file, f"{name} has an attribute {attribute}")
        if attribute == "href" and (not value.startswith("#") or value[1:] not in identifiers):
            fail(file, f"a link leads to {value[:60]}")
        if attribute in ("for", "aria-labelledby") and value not in identifiers:
            fail(file, f"{attribute} names {value[:60]}, which does not exist")
    if name == "th" and element.get("scope") not in ("row", "col", "rowgroup"):
        fail(file, "a header cell has no scope")


def check_policy(file, page, text):
    scripts = [e for e in page.iter("script")]
    if len(scripts) != 1:
        fail(file, f"{len(scripts)} scripts instead of one")
        return
    digest = hashlib.sha256((scripts[0].text or "").encode()).digest()
    wanted = f"script-src 'sha256-{base64.b64encode(digest).decode()}'"
    policy = [e.get("content") for e in page.iter("meta") if e.get("http-equiv")]
    if len(policy) != 1 or wanted not in policy[0] or "default-src 'none'" not in policy[0]:
        fail(file, f"the policy does not hold {wanted}")
    if not re.search(r'<html lang="en">', text):
        fail(file, "the page names no language")


# Each row of a table has as many cells as its head.
def check_tables(file, page):
    for table in page.iter("table"):
        widths = set()
        for row in table.iter("tr"):
            widths.add(sum(int(cell.get("colspan", "1")) for cell in row))
        if len(widths) != 1:
            fail(file, f"rows of {sorted(widths)} cells in one table")


def check_page(file):
    text = read(file)
    parser = html5lib.HTMLParser(namespaceHTMLElements=False)
    page = parser.parse(text)
    for place, code, values in parser.errors[:5]:
        fail(file, f"{place}: {code} {values}")
    identifiers = [e.get("id") for e in page.iter() if e.get("id")]
    for identifier in {i for i in identifiers if identifiers.count(i) > 1} if len(
        identifiers
    ) != len(set(identifiers)) else ():
        fail(file, f"two elements have the id {identifier}")
    for element in page.iter():
        check_element(file, element, set(identifiers))
    check_policy(file, page, text)
    check_tables(file, page)


def main():
    schemas, folder, *sarif_schemas = sys.argv[1:]
    check_json(f"{schemas}/report.schema.json", sorted(glob.glob(f"{folder}/*.json")))
    check_json(f"{schemas}/merge.schema.json", sorted(glob.glob(f"{folder}/merge/*.json")))
    for schema in sarif_schemas:
        check_json(schema, sorted(glob.glob(f"{folder}/*.sarif")))
    for file in sorted(glob.glob(f"{folder}/**/*.html", recursive=True)):
        check_page(file)
    sys.exit(1 if failures else 0)


main()
