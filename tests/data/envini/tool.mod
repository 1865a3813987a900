1 line to look for
# plugins
2 lines to add
plugin = envini
plugin-dir = envini/plugins
