# Installation and packaging.
