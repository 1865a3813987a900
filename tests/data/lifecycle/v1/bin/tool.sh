#!/bin/sh
echo "tool of version 1"
