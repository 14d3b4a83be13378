# What Doxygen is to see of a document.

# Links to what is not a page lead back into the tree.
s,\]\((\.\./)?(examples|platform)/,](../../\2/,g
# Its anchors are not those of Markdown.
s,\[([^]]*)\]\(#[^)]*\),\1,g
# Pictures are copied beside the pages.
s,^(!\[.*\]\()docs/,\1,
# A check line is not an address.
s|`file(:[^`]*)`|<code>file</code><code>\1</code>|g
