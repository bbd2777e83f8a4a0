# Defines INFO_… variables: the deployment values, escaped for the XML of information property
# lists.
foreach(
  value
  BUNDLE_IDENTIFIER
  DISPLAY_NAME
  API_HOST
  WEB_HOST
  FIREBASE_API_KEY
  IDENTITY_TOOLKIT_URL
  SECURE_TOKEN_URL
  TLS_EXTRA_CA
  UPDATE_FEED_URL
  UPDATE_PUBLIC_KEY)
  string(REPLACE "&" "&amp;" INFO_${value} "${ORVEL_${value}}")
  string(REPLACE "<" "&lt;" INFO_${value} "${INFO_${value}}")
  string(REPLACE ">" "&gt;" INFO_${value} "${INFO_${value}}")
endforeach()
