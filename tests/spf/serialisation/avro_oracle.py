"""Independent Avro binary oracle for AvroOracleTest.

Reads a JSON array of cases from the file named by argv[1]; each case has a "schema" (Avro
schema as JSON), "value" (the datum as JSON, see below) and "ours" (hex of the bytes the C++
encoder wrote). Writes a JSON array of results to stdout, one per case:
  "decoded"/"decodeError": what python3-avro makes of "ours" (all bytes must be consumed);
  "encoded"/"encodeError": hex of python3-avro's encoding of "value".

JSON form of a datum: bytes and fixed are hex strings; float and double are numbers, or the
strings "NaN", "Infinity", "-Infinity"; unions are the bare branch value (null for null).
Exit status 3 when the avro package cannot be imported.
"""
import io
import json
import math
import sys

try:
    import avro.io
    import avro.schema
except ImportError as error:  # the test skips with this text
    print("cannot import avro: %s" % error, file=sys.stderr)
    sys.exit(3)


def parse_schema(text):
    parse = getattr(avro.schema, "parse", None) or getattr(avro.schema, "Parse")
    return parse(text)


def float_to_json(value):
    if math.isnan(value):
        return "NaN"
    if math.isinf(value):
        return "Infinity" if value > 0 else "-Infinity"
    return value


def float_from_json(value):
    if isinstance(value, str):
        return {"NaN": float("nan"), "Infinity": float("inf"), "-Infinity": float("-inf")}[value]
    return float(value)


def union_branch(schema, value):
    for branch in schema.schemas:
        if (value is None) == (branch.type == "null"):
            return branch
    raise ValueError("no union branch for %r" % (value,))


def to_datum(schema, value):
    kind = schema.type
    if kind in ("bytes", "fixed"):
        return bytes.fromhex(value)
    if kind in ("float", "double"):
        return float_from_json(value)
    if kind == "array":
        return [to_datum(schema.items, item) for item in value]
    if kind == "map":
        return {key: to_datum(schema.values, item) for key, item in value.items()}
    if kind == "union":
        return to_datum(union_branch(schema, value), value)
    if kind in ("record", "error"):
        return {field.name: to_datum(field.type, value[field.name]) for field in schema.fields}
    return value


def from_datum(schema, datum):
    kind = schema.type
    if kind in ("bytes", "fixed"):
        return bytes(datum).hex()
    if kind in ("float", "double"):
        return float_to_json(datum)
    if kind == "array":
        return [from_datum(schema.items, item) for item in datum]
    if kind == "map":
        return {key: from_datum(schema.values, item) for key, item in datum.items()}
    if kind == "union":
        return from_datum(union_branch(schema, datum), datum)
    if kind in ("record", "error"):
        return {field.name: from_datum(field.type, datum[field.name]) for field in schema.fields}
    return datum


def decode(schema, hex_bytes):
    data = bytes.fromhex(hex_bytes)
    buffer = io.BytesIO(data)
    datum = avro.io.DatumReader(schema).read(avro.io.BinaryDecoder(buffer))
    if buffer.tell() != len(data):
        raise ValueError("%d trailing bytes" % (len(data) - buffer.tell()))
    return from_datum(schema, datum)


def encode(schema, value):
    buffer = io.BytesIO()
    avro.io.DatumWriter(schema).write(to_datum(schema, value), avro.io.BinaryEncoder(buffer))
    return buffer.getvalue().hex()


def run(case):
    schema = parse_schema(json.dumps(case["schema"]))
    result = {}
    try:
        result["decoded"] = decode(schema, case["ours"])
    except Exception as error:  # reported per case, the run goes on
        result["decodeError"] = "%s: %s" % (type(error).__name__, error)
    try:
        result["encoded"] = encode(schema, case["value"])
    except Exception as error:
        result["encodeError"] = "%s: %s" % (type(error).__name__, error)
    return result


def main():
    with open(sys.argv[1], encoding="utf-8") as source:
        cases = json.load(source)
    json.dump([run(case) for case in cases], sys.stdout, allow_nan=False)


if __name__ == "__main__":
    main()
