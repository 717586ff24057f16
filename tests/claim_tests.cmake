# The plug-in against the recording host.
