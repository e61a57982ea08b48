#!/usr/bin/python3
"""Prints a stored message as a mail client reads it, as JSON: headers, text and attachments."""
import email
import email.policy
import json
import sys

with open(sys.argv[1], "rb") as source:
    raw = source.read()
message = email.message_from_bytes(raw, policy=email.policy.default)
result = {"subject": message["subject"], "from": message["from"], "to": message["to"],
          "date": message["date"], "body": "", "attachments": [],
          "longest_line": max(len(line) for line in raw.split(b"\r\n"))}
for part in message.walk():
    if part.is_multipart():
        continue
    if part.get_filename():
        result["attachments"].append({"name": part.get_filename(), "content_hex": part.get_payload(decode=True).hex()})
    elif part.get_content_type() == "text/plain":
        result["body"] = part.get_content()
print(json.dumps(result))
