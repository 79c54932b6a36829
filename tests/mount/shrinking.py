"""Finds a short sequence of operations that still fails."""


def shrink(operations, fails, most=150):
    """Leaves out what is not needed for `fails(operations)` to be true; `most` bounds the tries."""
    part = max(1, len(operations) // 2)
    tries = 0
    while tries < most:
        start = 0
        shorter = False
        while start < len(operations) and tries < most:
            candidate = operations[:start] + operations[start + part:]
            tries += 1
            if candidate and fails(candidate):
                operations = candidate
                shorter = True
            else:
                start += part
        if part == 1 and not shorter:
            break
        part = max(1, part // 2)
    return operations
