"""Finds pieces of secret texts in what a server wrote."""


def find_pieces(secrets, written, length, skipped=0):
    """The pieces of `length` characters that are in `written`, whatever their letter case.

    `secrets` are texts; the first `skipped` characters of each and the BEGIN and END lines of keys do not
    count. Pieces do not go over line ends, because what quotes a text may write these in another way.
    """
    haystack = written.lower()
    found = []
    for secret in secrets:
        for line in secret[skipped:].lower().splitlines():
            if line.startswith("-----"):
                continue
            pieces = (line[i : i + length] for i in range(len(line) - length + 1))
            found.extend(piece for piece in pieces if piece in haystack)
    return found
