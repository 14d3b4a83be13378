# A text that does not fit gives its whole length.
s/return length > .*/return length;/
