# The parent path has no closing "/".
s/rfind('.') + 1/rfind('\/')/
