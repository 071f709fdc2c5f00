# What Doxygen would not see in the headers' comments, which are written for readers.
# "Threads: text" at the start of a line is a paragraph with a heading.
s/^ \* (Ownership|Errors|Threads|Signals|Reports|Logs|Results|Texts|Messages)[:.] +/ * @par \1\n * /
s/(\.) (Logs|Threads): /\1\n * @par \2\n * /
s/^ \* (TLS|Lock files)\. / * @par \1\n * /
# Names of the library in backticks are links; what is all capitals is not its own.
s/`([A-Z][A-Za-z0-9]*_[A-Z][A-Za-z0-9_]*)`/#\1/g
s/#([A-Z0-9_]+)\b/`\1`/g
