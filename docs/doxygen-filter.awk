# SPDX-License-Identifier: MIT
# Doxygen's input filter for our headers: makes documentation of their plain comments. Nothing is
# made up here; a name without a comment stays without one.
#
#   the comment at the head of the file     documents the file
#   a comment above a declaration           documents it and those that follow up to a blank line
#   a comment behind a declaration          documents that one
#
# Lines keep their numbers, so that a warning names the header's own line.

# What Markdown and Doxygen would take for markup, outside of `code` and "text", which Doxygen leaves
# alone. A text may go on in the next line.
function plain(text,    i, c, code, out) {
  for (i = 1; i <= length(text); i++) {
    c = substr(text, i, 1)
    if (c == "`") code = !code
    else if (c == "\"" && !code) quoted = !quoted
    else if (!code && !quoted) c = c in markup ? markup[c] : c
    out = out c
  }
  return out
}

# A line of a comment. Lines set in by two columns or more are a sample and stay as they are.
function words(text) {
  return text ~ /^   / ? "      " text : plain(text)
}

BEGIN {
  markup["&"] = "&amp;"
  markup["<"] = "&lt;"
  markup[">"] = "&gt;"
  split("\\ @ % # *", marks, " ")
  for (i in marks) markup[marks[i]] = "\\" marks[i]
}

FNR == 1 { print "/// \\file"; in_head = 1; next }

/^ *\/\/ NOLINT/ { print ""; next }

/^ *\/\// {
  text = $0
  sub(/^ *\/\//, "", text)
  if (!in_comment && !in_head) doc = ""
  if (!in_comment || text == "") quoted = 0
  in_comment = 1
  text = words(text)
  print "///" text
  if (!in_head) doc = doc (text == "" ? "<p>" : text)
  next
}

/^ *$/ { print ""; in_comment = in_head = 0; doc = ""; continued = 0; next }

{
  line = $0
  if (in_head) doc = ""
  tail = ""
  if (line !~ /^ *}/ && match(line, /  ?\/\/ /)) {
    quoted = 0
    if (substr(line, RSTART + RLENGTH) !~ /^NOLINT/)
      tail = " ///< " plain(substr(line, RSTART + RLENGTH))
    line = substr(line, 1, RSTART - 1)
  }
  repeat = !in_comment && !continued && doc != "" && line !~ /^ *(}|public:|protected:|private:)/
  print (repeat ? "/**" doc " */" : "") line tail
  continued = line !~ /[;}]$/
  if (line ~ /(class|struct|enum|namespace|extern) .*{$/) doc = ""
  in_comment = in_head = 0
}
